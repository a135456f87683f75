// SPDX-License-Identifier: MIT
//
// The controls that the bundled loop hands out. Each forwards to one part of the loop. A
// control that outlives its loop may only be deleted.
#include <brask/platform.h>

#include <utility>

#include "brask/linux/current_loop.h"
#include "brask/linux/loop.h"

namespace Brask::Linux {

namespace {

class LoopFdControl final : public Platform::FdControl, private LoopMember {
 public:
  LoopFdControl(Loop& loop, Platform::FdEventHandler* handler)
      : LoopMember(loop), watcher_(handler) {}
  ~LoopFdControl() override {
    if (hasLoop()) loop().descriptors().unwatch(watcher_);
  }

  void watch(int fd) override { loop().descriptors().watch(watcher_, fd); }
  void unwatch() override { loop().descriptors().unwatch(watcher_); }
  [[gnu::hot]] int fd() override {
    static_cast<void>(loop());  // throws when the loop was destroyed
    return watcher_.fd;
  }

 private:
  FdWatcher watcher_;
};

class LoopTimerControl final : public Platform::TimerControl, private LoopMember {
 public:
  LoopTimerControl(Loop& loop, Platform::TimeoutHandler* handler)
      : LoopMember(loop), node_(handler) {
    loop.reserveTimer();
  }
  ~LoopTimerControl() override {
    if (hasLoop()) loop().releaseTimer(node_);
  }

  void start(double seconds) override { loop().startTimer(node_, seconds); }
  [[gnu::hot]] void cancel() override { loop().cancelTimer(node_); }

 private:
  TimerNode node_;
};

class LoopInotifyControl final : public Platform::InotifyControl, private LoopMember {
 public:
  LoopInotifyControl(Loop& loop, Platform::InotifyHandler* handler)
      : LoopMember(loop), watcher_(handler) {}
  ~LoopInotifyControl() override {
    if (hasLoop()) loop().removeWatch(watcher_);
  }

  void addWatch(std::string path, uint32_t mask) override {
    loop().addWatch(watcher_, std::move(path), mask);
  }
  void removeWatch() override { loop().removeWatch(watcher_); }
  std::string path() override { return watcher_.path; }

 private:
  InotifyWatcher watcher_;
};

}  // namespace

}  // namespace Brask::Linux

namespace Brask::Platform {

FdControl* getFdControl(FdEventHandler* handler) {
  return new Linux::LoopFdControl(Linux::currentLoop(), handler);
}

TimerControl* getTimerControl(TimeoutHandler* handler) {
  return new Linux::LoopTimerControl(Linux::currentLoop(), handler);
}

InotifyControl* getInotifyControl(InotifyHandler* handler) {
  return new Linux::LoopInotifyControl(Linux::currentLoop(), handler);
}

}  // namespace Brask::Platform
