// SPDX-License-Identifier: MIT
//
// TimerControl.
#include "conformance/fixture.h"

namespace Zorbe::Conformance {
namespace {

constexpr double kShort = 0.001;
constexpr double kLong = 1000.0;

class TimerConformance : public LoopConformance {
 protected:
  bool expires(const TimerProbe& timer, int times = 1) const {
    return turnUntil([&timer, times] { return timer.timeouts >= times; });
  }

  // Turns for longer than a timer of kShort takes.
  void letShortTimersExpire() const {
    TimerProbe later;
    later.control->start(5 * kShort);
    EXPECT_TRUE(expires(later));
    settle();
  }

  TimerProbe timer_, another_;
};

}  // namespace

TEST_F(TimerConformance, ExpiresWithoutAnyOtherEvent) {
  timer_.control->start(kShort);
  EXPECT_TRUE(expires(timer_));
}

TEST_F(TimerConformance, IsNeverEarly) {
  for (const double seconds : {0.0005, 0.001, 0.0015, 0.02}) {
    TimerProbe timer;
    const auto start = Clock::now();
    timer.control->start(seconds);
    ASSERT_TRUE(expires(timer));
    EXPECT_GE(secondsSince(start), seconds);
  }
}

TEST_F(TimerConformance, IsNotEarlyWhenItIsStartedLateInAHandler) {
  Clock::time_point started;
  timer_.onTimeout = [this, &started] {
    const auto entered = Clock::now();
    while (secondsSince(entered) < 0.004) {
    }
    started = Clock::now();
    another_.control->start(0.003);
  };
  timer_.control->start(0.0);
  ASSERT_TRUE(expires(another_));
  EXPECT_GE(secondsSince(started), 0.003);
}

TEST_F(TimerConformance, ExpiresOnce) {
  timer_.control->start(kShort);
  ASSERT_TRUE(expires(timer_));
  letShortTimersExpire();
  EXPECT_EQ(1, timer_.timeouts);
}

TEST_F(TimerConformance, StartingAgainMovesItCloser) {
  timer_.control->start(kLong);
  timer_.control->start(kShort);
  EXPECT_TRUE(expires(timer_));
}

TEST_F(TimerConformance, StartingAgainMovesItAway) {
  timer_.control->start(kShort);
  timer_.control->start(kLong);
  letShortTimersExpire();
  EXPECT_EQ(0, timer_.timeouts);
}

TEST_F(TimerConformance, CancelDisarms) {
  timer_.control->start(0.0);
  another_.control->start(kShort);
  timer_.control->cancel();
  another_.control->cancel();
  letShortTimersExpire();
  EXPECT_EQ(0, timer_.timeouts + another_.timeouts);
}

TEST_F(TimerConformance, CancelIsHarmlessWithoutAnArmedTimer) {
  EXPECT_NO_THROW(timer_.control->cancel());
  timer_.control->start(0.0);
  EXPECT_NO_THROW(timer_.control->cancel());
  EXPECT_NO_THROW(timer_.control->cancel());
  timer_.control->start(kShort);
  EXPECT_TRUE(expires(timer_));
  EXPECT_NO_THROW(timer_.control->cancel());
}

TEST_F(TimerConformance, CancelHoldsForTheTurnInWhichATimerIsDue) {
  timer_.onTimeout = [this] { another_.control->cancel(); };
  another_.onTimeout = [this] { timer_.control->cancel(); };
  timer_.control->start(0.0);
  another_.control->start(0.0);
  settle();
  EXPECT_EQ(1, timer_.timeouts + another_.timeouts);
}

TEST_F(TimerConformance, StartCallsNoHandler) {
  timer_.control->start(0.0);
  EXPECT_EQ(0, timer_.timeouts);
}

TEST_F(TimerConformance, ZeroExpiresWithoutWaiting) {
  timer_.control->start(0.0);
  settle();
  EXPECT_EQ(1, timer_.timeouts);
}

TEST_F(TimerConformance, AZeroTimerThatIsStartedInItsHandlerHoldsUpNoOther) {
  constexpr int kEnough = 1000;
  Pair pair;
  FdProbe descriptor([&pair](int) { pair.drain(); });
  descriptor.control->watch(pair.here);
  int missed = 0;
  timer_.onTimeout = [&] {
    if (timer_.timeouts == 1) {
      pair.makeReady();
      another_.control->start(0.0);
    }
    const bool waiting = descriptor.events == 0 || another_.timeouts == 0;
    if (waiting && timer_.timeouts == kEnough) ++missed;
    if (waiting && timer_.timeouts < kEnough) timer_.control->start(0.0);
  };
  timer_.control->start(0.0);
  settle();
  EXPECT_EQ(0, missed);
  EXPECT_EQ(1, descriptor.events);
  EXPECT_EQ(1, another_.timeouts);
}

TEST_F(TimerConformance, ABusyDescriptorHoldsUpNoTimer) {
  constexpr int kEnough = 1000;
  Pair pair;
  FdProbe busy;
  int missed = 0;
  busy.onEvent = [&](int) {
    if (busy.events == 1) timer_.control->start(0.0);
    if (timer_.timeouts == 0 && busy.events < kEnough) return;
    if (timer_.timeouts == 0) ++missed;
    busy.control->unwatch();
  };
  busy.control->watch(pair.here);
  pair.makeReady();
  EXPECT_TRUE(turnUntil([&busy] { return busy.control->fd() < 0; }));
  EXPECT_EQ(0, missed);
}

TEST_F(TimerConformance, MayBeStartedInItsHandler) {
  timer_.onTimeout = [this] {
    if (timer_.timeouts < 3) timer_.control->start(kShort);
  };
  timer_.control->start(kShort);
  EXPECT_TRUE(expires(timer_, 3));
}

TEST_F(TimerConformance, LongDelaysAreNotCutShort) {
  constexpr double kDay = 86400.0;
  for (const double seconds : {30.0, 25 * kDay, 365 * kDay}) {
    TimerProbe timer;
    timer.control->start(seconds);
    letShortTimersExpire();
    EXPECT_EQ(0, timer.timeouts) << seconds;
  }
}

}  // namespace Zorbe::Conformance
