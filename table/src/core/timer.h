// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <memory>

namespace Zorbe::Table {

/// A timer of the contract that calls one operation of its owner, which outlives it. Knows
/// whether it is armed.
template <class Owner>
class Timer : public Brask::Platform::TimeoutHandler {
 public:
  Timer(Owner& owner, void (Owner::*operation)())
      : owner_(owner), operation_(operation), control_(Brask::Platform::getTimerControl(this)) {}

  bool isArmed() const { return armed_; }

  void start(double seconds) {
    control_->start(seconds);
    armed_ = true;
  }

  void startIfIdle(double seconds) {
    if (!armed_) start(seconds);
  }

  void cancel() {
    if (!armed_) return;
    control_->cancel();
    armed_ = false;
  }

  void timeout() override {
    armed_ = false;
    (owner_.*operation_)();
  }

 private:
  Owner& owner_;
  void (Owner::*operation_)();
  bool armed_ = false;
  std::unique_ptr<Brask::Platform::TimerControl> control_;
};

}  // namespace Zorbe::Table
