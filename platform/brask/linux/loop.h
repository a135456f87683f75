// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "brask/linux/alarm.h"
#include "brask/linux/fd_registry.h"
#include "brask/linux/inotify_hub.h"
#include "brask/linux/loop_member.h"
#include "brask/linux/poller.h"
#include "brask/linux/stop_signal.h"
#include "brask/linux/timer_queue.h"

namespace Brask::Linux {

/// What stands behind EventLoop. One turn is
///
///   wait -> descriptors and inotify, in the kernel's order -> notices of inotify -> timers
///
/// An exception out of a callback interrupts the turn; the next one goes on
/// behind that callback before it asks the kernel again. So a callback that
/// throws every time holds up nobody else.
class Loop {
 public:
  Loop();
  ~Loop();

  void run();
  bool turn(double maxWaitSeconds);
  void stop() noexcept { stop_.raise(); }
  int fd() noexcept;

  // For the controls.
  LoopMembers& members() { return members_; }
  FdRegistry& descriptors() { return descriptors_; }
  void admitTimer() { timers_.admit(); }
  void dismissTimer(TimerNode& node);
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
  void shedStrays();
  void showWork() noexcept;

  Poller poller_;
  StopSignal stop_;
  Alarm alarm_;
  TimerQueue timers_;
  TimerNode retry_{nullptr};  // when to try paused listening descriptors again
  FdRegistry descriptors_{poller_};
  InotifyHub inotify_;
  LoopMembers members_;

  uint64_t turns_ = 0;
  uint64_t endedBefore_ = 0;   // registrations that had ended when the batch was taken
  uint64_t straysBefore_ = 0;  // reports for ended registrations, likewise
  bool turning_ = false;
  bool waited_ = true;        // for the kernel, in this turn
  bool interrupted_ = false;  // by an exception: the turn is not over
  bool shown_ = false;        // somebody polls fd()
};

}  // namespace Brask::Linux
