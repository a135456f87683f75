// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/platform.h>

#include <vector>

#include "loop/driver.h"

namespace Bench {

namespace {

using Brask::Platform::FdControl;
using Brask::Platform::TimerControl;

struct Events : Brask::Platform::FdEventHandler {
  void fdEvent(int) override { ++count; }
  int count = 0;
};

struct Ticks : Brask::Platform::TimeoutHandler {
  void timeout() override {
    if (--left > 0) control->start(0.0);
  }
  int left = 0;
  std::unique_ptr<TimerControl> control{Brask::Platform::getTimerControl(this)};
};

class BundledLoop : public LoopDriver {
 public:
  std::string name() const override { return "bundled loop"; }

  void watch(int fd) override {
    controls_.emplace_back(Brask::Platform::getFdControl(&events_));
    controls_.back()->watch(fd);
  }

  void dispatch(int count) override {
    for (const int end = events_.count + count; events_.count < end;) loop_.turn(0);
  }

  void rearm(int count) override {
    for (int each = 0; each < count; ++each) rearmed_.control->start(1000.0 + each % 7);
  }

  void turn(int count) override {
    ticks_.left = count;
    ticks_.control->start(0.0);
    while (ticks_.left > 0) loop_.turn(0);
  }

 private:
  Brask::Linux::EventLoop loop_;
  Events events_;
  Ticks ticks_;
  Ticks rearmed_;
  std::vector<std::unique_ptr<FdControl>> controls_;
};

}  // namespace

std::unique_ptr<LoopDriver> makeBundledLoop() {
  return std::make_unique<BundledLoop>();
}

}  // namespace Bench
