// SPDX-License-Identifier: MIT
//
// Handlers that do nothing that costs anything by itself, to measure the loop.
#pragma once

#include <sys/eventfd.h>

#include <memory>

#include "unit/platform/brask/linux/loop_fixture.h"

namespace LoopTesting {

constexpr int kTurns = 1000;

struct Reader : Brask::Platform::FdEventHandler {
  void fdEvent(int) override { ++events; }
  long events = 0;
  std::unique_ptr<Brask::Platform::FdControl> control{Brask::Platform::getFdControl(this)};
};

struct Ticker : Brask::Platform::TimeoutHandler {
  void timeout() override {
    if (++events == kTurns) Brask::Linux::EventLoop::current().stop();
    control->start(0.0);
  }
  long events = 0;
  std::unique_ptr<Brask::Platform::TimerControl> control{Brask::Platform::getTimerControl(this)};
};

struct Watcher : Brask::Platform::InotifyHandler {
  void inotifyError(const std::string&) override {}
  void inotifyDeleted() override {}
  void inotifyChanged(const std::string&) override { ++events; }
  long events = 0;
  std::unique_ptr<Brask::Platform::InotifyControl> control{
      Brask::Platform::getInotifyControl(this)};
};

// Descriptors that are watched and silent, and one that is always ready.
class Crowd {
 public:
  explicit Crowd(size_t silent) : ready_(::eventfd(1, EFD_CLOEXEC)) {
    readers_.reserve(silent + 1);
    for (size_t each = 0; each < silent; ++each) add(::eventfd(0, EFD_CLOEXEC));
    add(ready_);
  }
  ~Crowd() {
    readers_.clear();
    for (const int fd : fds_) ::close(fd);
  }

  long events() const { return readers_.back().events; }

 private:
  void add(int fd) {
    fds_.push_back(fd);
    readers_.emplace_back();
    readers_.back().control->watch(fd);
  }

  int ready_;
  std::vector<int> fds_;
  std::vector<Reader> readers_;
};

}  // namespace LoopTesting
