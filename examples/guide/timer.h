// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <functional>
#include <memory>
#include <utility>

/// A one-shot timer that calls a function. A member of the object that needs a timer: a class
/// of the library is a TimeoutHandler already, whose timeout() is the library's.
class Timer : public Brask::Platform::TimeoutHandler {
 public:
  /// The loop of this thread calls `action` when the timer has expired.
  explicit Timer(std::function<void()> action)
      : action_(std::move(action)), control_(Brask::Platform::getTimerControl(this)) {}

  /// Arms the timer, or moves it.
  void start(double seconds) { control_->start(seconds); }

  void timeout() override { action_(); }

 private:
  std::function<void()> action_;
  std::unique_ptr<Brask::Platform::TimerControl> control_;
};
