// SPDX-License-Identifier: MIT
//
// Controls of timers.
#include "broken.h"

#include <chrono>
#include <cstdint>
#include <stdexcept>

namespace Zorbe::Conformance::Broken {

using Brask::Platform::TimeoutHandler;
using Brask::Platform::TimerControl;

namespace {

// Enough to see that another had to wait.
constexpr int kMany = 10000;

class TimerLink : public Link, public TimeoutHandler {
 public:
  explicit TimerLink(TimeoutHandler* handler) : handler_(handler), control_(bundledTimer(this)) {}

  void timeout() override;
  void start(double seconds);
  void cancel();

 private:
  void drop() override {
    control_.reset();
    former_.clear();
  }
  void report() {
    isArmed_ = false;
    call([this] { handler_->timeout(); });
  }
  bool ignoresStart(double seconds) const;
  // What has passed since then, which a careless loop takes from a delay.
  static double lateness();

  TimeoutHandler* const handler_;
  std::unique_ptr<TimerControl> control_;
  std::vector<std::unique_ptr<TimerControl>> former_;
  bool isArmed_ = false;
  bool hasExpiredAgain_ = false;
};

using Clock = std::chrono::steady_clock;

// When the loop looked at the clock last.
Clock::time_point turnBegan;

double changed(double seconds) {
  if (breaks("TimerConformance.IsNeverEarly")) return seconds / 2;
  if (breaks("TimerConformance.ZeroExpiresWithoutWaiting") && seconds == 0.0) return 0.05;
  if (breaks("TimerConformance.LongDelaysAreNotCutShort")) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(seconds * 1000))) /
           1000.0;
  }
  return seconds;
}

double TimerLink::lateness() {
  const bool isCounted =
      isAnyCalling() && breaks("TimerConformance.IsNotEarlyWhenItIsStartedLateInAHandler");
  return isCounted ? std::chrono::duration<double>(Clock::now() - turnBegan).count() : 0.0;
}

bool TimerLink::ignoresStart(double seconds) const {
  return (seconds > 0.0 && breaks("TimerConformance.ExpiresWithoutAnyOtherEvent")) ||
         (isArmed_ && breaks("TimerConformance.StartingAgainMovesItCloser")) ||
         (isCalling() && breaks("TimerConformance.MayBeStartedInItsHandler"));
}

void TimerLink::timeout() {
  const auto self = shared_from_this();
  turnBegan = Clock::now();
  report();
  if (breaks("TimerConformance.ExpiresOnce") && control_ && !hasExpiredAgain_) {
    hasExpiredAgain_ = true;
    control_->start(0.0);
  }
  if (!breaks("TimerConformance.AZeroTimerThatIsStartedInItsHandlerHoldsUpNoOther")) return;
  for (int more = 0; more < kMany && isArmed_ && control_; ++more) report();
}

void TimerLink::start(double seconds) {
  if (ignoresStart(seconds)) return;
  if (isArmed_ && breaks("TimerConformance.StartingAgainMovesItAway")) {
    former_.push_back(std::move(control_));
    control_.reset(bundledTimer(this));
  }
  isArmed_ = true;
  control_->start(changed(seconds) - lateness());
  if (seconds == 0.0 && breaks(isAnyCalling() ? "HandlerConformance.AreCalledOneAtATime"
                                              : "TimerConformance.StartCallsNoHandler")) {
    report();
  }
}

void TimerLink::cancel() {
  if (breaks("TimerConformance.CancelDisarms")) return;
  if (isAnyCalling() && breaks("TimerConformance.CancelHoldsForTheTurnInWhichATimerIsDue")) return;
  if (!isArmed_ && breaks("TimerConformance.CancelIsHarmlessWithoutAnArmedTimer")) {
    throw std::logic_error("cancel() without a timer");
  }
  isArmed_ = false;
  control_->cancel();
}

class BrokenTimerControl : public Control<TimerControl, TimerLink> {
 public:
  using Control::Control;
  void start(double seconds) override { link_->start(seconds); }
  void cancel() override { link_->cancel(); }
};

}  // namespace
}  // namespace Zorbe::Conformance::Broken

Brask::Platform::TimerControl* Brask::Platform::getTimerControl(TimeoutHandler* handler) {
  namespace Broken = Zorbe::Conformance::Broken;
  return new Broken::BrokenTimerControl(std::make_shared<Broken::TimerLink>(handler));
}
