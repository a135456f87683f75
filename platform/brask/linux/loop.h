// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "brask/linux/fd_registry.h"
#include "brask/linux/inotify_hub.h"
#include "brask/linux/loop_member.h"
#include "brask/linux/poller.h"
#include "brask/linux/stop_request.h"
#include "brask/linux/timer_queue.h"
#include "brask/linux/timerfd.h"

namespace Brask::Linux {

/// The implementation of EventLoop. One turn is
///
///   wait -> descriptors and inotify, in the kernel's order -> notices of inotify -> timers
///
/// An exception from a callback interrupts the turn; the next turn continues after that
/// callback before it waits again. A callback that throws every time therefore does not
/// delay the others.
class Loop {
 public:
  Loop();
  ~Loop();

  void run();
  bool turn(double maxWaitSeconds);
  void stop() noexcept { stop_.set(); }
  int fd() noexcept;

  // For the controls.
  LoopMembers& members() { return members_; }
  FdRegistry& descriptors() { return descriptors_; }
  void reserveTimer() { timers_.reserve(); }
  void releaseTimer(TimerNode& node);
  void startTimer(TimerNode& node, double seconds);
  void cancelTimer(TimerNode& node);
  void addWatch(InotifyWatcher& watcher, std::string path, uint32_t mask);
  void removeWatch(InotifyWatcher& watcher);

 private:
  class Turning;

  int pollOwn();
  bool pass(int milliseconds);
  void collect(int milliseconds);
  bool deliver(bool late);
  bool dispatch(uint64_t data, bool late);
  bool runTimers();
  void retryLater();
  bool hasWork() const;
  void dropStaleRegistrations();
  void signalReadiness() noexcept;

  Poller poller_;
  StopRequest stop_;
  Timerfd timerfd_;
  TimerQueue timers_;
  TimerNode retry_{nullptr};  // when to try paused listening descriptors again
  FdRegistry descriptors_{poller_};
  InotifyHub inotify_;
  LoopMembers members_;

  uint64_t turns_ = 0;
  uint64_t endedBefore_ = 0;         // registrations that had ended when the batch was taken
  uint64_t staleReportsBefore_ = 0;  // events of ended registrations, likewise
  bool turning_ = false;
  bool waited_ = true;             // in epoll_wait(2), in this turn
  bool interrupted_ = false;       // by an exception: the turn is not finished
  bool externallyPolled_ = false;  // a client polls fd()
};

}  // namespace Brask::Linux
