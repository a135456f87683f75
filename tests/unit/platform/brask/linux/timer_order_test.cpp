// SPDX-License-Identifier: MIT
//
// Timers run in order of expiry, those that expire together in order of their starts.
#include <memory>
#include <random>

#include "unit/platform/brask/linux/timer_fixture.h"
#include "unit/platform/brask/linux/virtual_time.h"

using namespace LoopTesting;

namespace {

class TimerOrderTest : public TimerTest {};

}  // namespace

TEST_F(TimerOrderTest, TimersDueInOneTurnRunInOrderOfExpiry) {
  const auto a = letter('a'), b = letter('b'), c = letter('c'), d = letter('d');
  const VirtualTime time;
  d->control->start(0.004);
  b->control->start(0.002);
  a->control->start(0.001);
  c->control->start(0.003);
  VirtualTime::advanceTo(6000);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("abcd", order);
}

TEST_F(TimerOrderTest, AnImmediateTimerRunsAfterOneThatExpiredBeforeItsStart) {
  const auto delayed = letter('d'), immediate = letter('i');
  delayed->control->start(0.001);
  letPass(0.003);
  immediate->control->start(0.0);
  EXPECT_TRUE(turnUntil([&] { return order.size() == 2; }));
  EXPECT_EQ("di", order);
}

TEST_F(TimerOrderTest, AnImmediateTimerStandsBeforeOneThatExpiresAfterItsStart) {
  const auto delayed = letter('d'), immediate = letter('i');
  immediate->control->start(0.0);
  delayed->control->start(0.001);
  letPass(0.003);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("id", order);
}

TEST_F(TimerOrderTest, EqualTimersRunInOrderOfStart) {
  const auto a = letter('a'), b = letter('b'), c = letter('c');
  start(0.0, a, b, c, a);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("bca", order);
}

TEST_F(TimerOrderTest, AThousandTimersInAnyOrderRunInOrderOfExpiry) {
  struct Expiry {
    Clock::time_point earliest, latest;  // the clock before and after start()
  };
  std::mt19937 random(1);
  std::vector<std::unique_ptr<TimerProbe>> timers;
  std::vector<Expiry> expiries(1000), ran;
  for (Expiry& expiry : expiries) {
    const std::chrono::microseconds delay(20000 + 100 * (random() % 1000));
    timers.push_back(std::make_unique<TimerProbe>([&] { ran.push_back(expiry); }));
    timers.back()->control->start(static_cast<double>(1 + random() % 1000));
    expiry.earliest = Clock::now() + delay;
    timers.back()->control->start(std::chrono::duration<double>(delay).count());
    expiry.latest = Clock::now() + delay;
    if (timers.size() % 4 == 0) timers[random() % timers.size()]->control->cancel();
  }
  letPass(0.15);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_GE(ran.size(), 750u);
  for (size_t each = 1; each < ran.size(); ++each) {
    EXPECT_LE(ran[each - 1].earliest, ran[each].latest + std::chrono::microseconds(1));
  }
}

TEST_F(TimerOrderTest, ADelayStartedInACallbackIsKeptBesideAZeroTimer) {
  const auto delayed = letter('d'), immediate = letter('i'), behind = letter('b');
  TimerProbe first([&] {
    delayed->control->start(0.001);
    letPass(0.003);
    immediate->control->start(0.0);
  });
  first.control->start(0.0);
  behind->control->start(0.0);
  EXPECT_TRUE(turnUntil([&] { return order.size() == 3; }));
  EXPECT_EQ("bdi", order);
}

TEST_F(TimerOrderTest, ACallbackMayDeleteOrCancelTheNextTimers) {
  auto doomed = letter('x');
  const auto cancelled = letter('y'), postponed = letter('z'), last = letter('l');
  TimerProbe first([&] {
    doomed.reset();
    cancelled->control->cancel();
    postponed->control->start(1000.0);
  });
  first.control->start(0.0);
  start(0.0, doomed, cancelled, postponed, last);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("l", order);
}

TEST_F(TimerOrderTest, ADeletedTimerDoesNotDisturbTheOthers) {
  auto a = letter('a'), b = letter('b'), c = letter('c');
  a->control->start(0.001);
  b->control->start(0.002);
  c->control->start(0.003);
  a.reset();
  letPass(0.004);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("bc", order);
}

TEST_F(TimerOrderTest, AnEarlierTimerIsNotHeldUpByOneThatTheLoopHasWaitedFor) {
  TimerProbe later, earlier;
  later.control->start(1000.0);
  EXPECT_FALSE(loop->turn(0));
  earlier.control->start(0.001);
  EXPECT_TRUE(loop->turn(kPatience));
  EXPECT_EQ(1, earlier.timeouts);
  EXPECT_EQ(0, later.timeouts);
}

TEST_F(TimerOrderTest, ACancelledZeroTimerLeavesThoseAroundItInOrder) {
  const auto a = letter('a'), b = letter('b'), c = letter('c');
  start(0.0, a, b, c);
  b->control->cancel();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("ac", order);
}
