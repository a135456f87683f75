// SPDX-License-Identifier: MIT
//
// Timers: never early, once each turn, and without starving another control.
#include <limits>

#include "unit/platform/brask/linux/timer_fixture.h"

using namespace LoopTesting;

namespace {

class TimerControlTest : public TimerTest {};

}  // namespace

TEST_F(TimerControlTest, NeverExpiresEarlyAndOnlyOnce) {
  for (const double seconds : {1e-9, 0.0005, 0.001, 0.0015, 0.02}) {
    TimerProbe timer;
    const auto start = Clock::now();
    timer.control->start(seconds);
    EXPECT_TRUE(loop->turn(kPatience));
    EXPECT_GE(secondsSince(start), seconds);
    EXPECT_FALSE(loop->turn(0.002));
    EXPECT_EQ(1, timer.timeouts);
  }
}

TEST_F(TimerControlTest, IsNotEarlyWhenStartedLateInACallback) {
  Clock::time_point started;
  TimerProbe second([&] { EXPECT_GE(secondsSince(started), 0.003); });
  TimerProbe first([&] {
    letPass(0.004);
    started = Clock::now();
    second.control->start(0.003);
  });
  first.control->start(0.0);
  EXPECT_TRUE(turnUntil([&] { return second.timeouts == 1; }));
}

TEST_F(TimerControlTest, ZeroNegativeAndNoNumberRunOnTheNextTurnNotInsideStart) {
  const double nothing = std::numeric_limits<double>::quiet_NaN();
  for (const double seconds : {0.0, -0.0, -1.0, -1e300, nothing}) {
    TimerProbe timer;
    timer.control->start(seconds);
    EXPECT_EQ(0, timer.timeouts);
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(1, timer.timeouts);
  }
}

TEST_F(TimerControlTest, HugeDelaysDoNotWrapAround) {
  TimerProbe timers[4];
  const double huge[] = {1e10, 1e18, 1e300, std::numeric_limits<double>::infinity()};
  for (int each = 0; each < 4; ++each) timers[each].control->start(huge[each]);
  EXPECT_FALSE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0.002));
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(TimerControlTest, StartMovesAnArmedTimerBothWays) {
  TimerProbe timer;
  timer.control->start(1000.0);
  timer.control->start(0.001);
  EXPECT_TRUE(loop->turn(kPatience));
  timer.control->start(0.0);
  timer.control->start(1000.0);
  EXPECT_FALSE(loop->turn(0));
  timer.control->start(0.001);
  timer.control->start(1000.0);
  EXPECT_FALSE(loop->turn(0.005));
  EXPECT_EQ(1, timer.timeouts);
}

TEST_F(TimerControlTest, CancelDisarmsAndIsHarmlessWithoutAnArmedTimer) {
  TimerProbe timer;
  timer.control->cancel();
  for (const double seconds : {0.0, 0.001}) {
    timer.control->start(seconds);
    timer.control->cancel();
    timer.control->cancel();
    EXPECT_FALSE(loop->turn(0.005));
  }
  EXPECT_EQ(0, timer.timeouts);
}

TEST_F(TimerControlTest, ATimerRearmedInItsCallbackRunsOncePerTurn) {
  TimerProbe timer;
  timer.onTimeout = [&] { timer.control->start(0.0); };
  timer.control->start(0.0);
  for (int turns = 1; turns <= 5; ++turns) {
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(turns, timer.timeouts);
  }
}

TEST_F(TimerControlTest, ATimerStartedByADescriptorWaitsForTheNextTurn) {
  Pair pair;
  TimerProbe timer;
  FdProbe probe([&](int) {
    pair.drain();
    timer.control->start(0.0);
  });
  probe.control->watch(pair.here);
  pair.makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(0, timer.timeouts);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, timer.timeouts);
}

TEST_F(TimerControlTest, ARearmedZeroTimerStarvesNoOtherControl) {
  Pair pair;
  TimerProbe greedy, delayed;
  FdProbe probe([&](int) { pair.drain(); });
  greedy.onTimeout = [&] {
    greedy.control->start(0.0);
    if (probe.events == 1 && delayed.timeouts == 1) loop->stop();
  };
  greedy.control->start(0.0);
  delayed.control->start(0.002);
  probe.control->watch(pair.here);
  pair.makeReady();
  loop->run();
  EXPECT_EQ(1, probe.events);
  EXPECT_EQ(1, delayed.timeouts);
}

TEST_F(TimerControlTest, ABusyDescriptorDoesNotStarveATimer) {
  Pair pair;
  FdProbe busy;
  TimerProbe timer([this] { loop->stop(); });
  busy.control->watch(pair.here);
  pair.makeReady();
  timer.control->start(0.002);
  loop->run();
  EXPECT_GT(busy.events, 1);
}

TEST_F(TimerControlTest, ACallbackMayDeleteItsOwnTimer) {
  auto* timer = new TimerProbe;
  timer->onTimeout = [&] { delete timer; };
  timer->control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(TimerControlTest, AZeroTimerThatAnExpiredOneStartedRunsOnceOnTheNextTurn) {
  TimerProbe immediate;
  TimerProbe expired([&] { immediate.control->start(0.0); });
  expired.control->start(0.001);
  EXPECT_TRUE(turnUntil([&] { return expired.timeouts == 1; }));
  EXPECT_EQ(0, immediate.timeouts);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, immediate.timeouts);
}
