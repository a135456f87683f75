// SPDX-License-Identifier: MIT
//
// Timers: never early, in order, and never at the cost of anybody else.
#include <ctime>
#include <limits>
#include <memory>
#include <random>

#include "fault/fault.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;
namespace Fault = Zorbe::Test::Fault;

namespace {

// While it exists no time passes, even when another process runs in between.
class ClockAtRest {
 public:
  ClockAtRest() {
    EXPECT_EQ(0, ::clock_gettime(CLOCK_MONOTONIC, &now_));
    Fault::divert("clock_gettime", tell);
  }
  ClockAtRest(const ClockAtRest&) = delete;
  ClockAtRest& operator=(const ClockAtRest&) = delete;
  ~ClockAtRest() { Fault::reset(); }

 private:
  static int tell(clockid_t /*clock*/, timespec* now) {
    *now = now_;
    return 0;
  }

  static inline timespec now_{};
};

class TimerControlTest : public LoopTest {
 protected:
  // A timer that notes its letter when it expires.
  std::unique_ptr<TimerProbe> letter(char name) {
    return std::make_unique<TimerProbe>([this, name] { order += name; });
  }

  static void letPass(double seconds) {
    const auto start = Clock::now();
    while (secondsSince(start) < seconds) {
    }
  }

  std::string order;
};

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

TEST_F(TimerControlTest, TimersDueInOneTurnRunInOrderOfExpiry) {
  const auto a = letter('a'), b = letter('b'), c = letter('c'), d = letter('d');
  {
    const ClockAtRest atRest;
    d->control->start(0.004);
    b->control->start(0.002);
    a->control->start(0.001);
    c->control->start(0.003);
  }
  letPass(0.006);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("abcd", order);
}

TEST_F(TimerControlTest, AnImmediateTimerRunsAfterOneThatExpiredBeforeItsStart) {
  const auto delayed = letter('d'), immediate = letter('i');
  delayed->control->start(0.001);
  letPass(0.003);
  immediate->control->start(0.0);
  EXPECT_TRUE(turnUntil([&] { return order.size() == 2; }));
  EXPECT_EQ("di", order);
}

TEST_F(TimerControlTest, AnImmediateTimerStandsBeforeOneThatExpiresAfterItsStart) {
  const auto delayed = letter('d'), immediate = letter('i');
  immediate->control->start(0.0);
  delayed->control->start(0.001);
  letPass(0.003);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("id", order);
}

TEST_F(TimerControlTest, EqualTimersRunInOrderOfStart) {
  const auto a = letter('a'), b = letter('b'), c = letter('c');
  a->control->start(0.0);
  b->control->start(0.0);
  c->control->start(0.0);
  a->control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("bca", order);
}

TEST_F(TimerControlTest, AThousandTimersInAnyOrderRunInOrderOfExpiry) {
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

TEST_F(TimerControlTest, ADelayStartedInACallbackIsKeptBesideAZeroTimer) {
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

TEST_F(TimerControlTest, ACallbackMayDeleteItsOwnTimer) {
  auto* timer = new TimerProbe;
  timer->onTimeout = [&] { delete timer; };
  timer->control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(TimerControlTest, ACallbackMayDeleteOrCancelTheNextTimers) {
  auto doomed = letter('x');
  const auto cancelled = letter('y'), postponed = letter('z'), last = letter('l');
  TimerProbe first([&] {
    doomed.reset();
    cancelled->control->cancel();
    postponed->control->start(1000.0);
  });
  first.control->start(0.0);
  doomed->control->start(0.0);
  cancelled->control->start(0.0);
  postponed->control->start(0.0);
  last->control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("l", order);
}

TEST_F(TimerControlTest, ADeletedTimerDoesNotDisturbTheOthers) {
  auto a = letter('a'), b = letter('b'), c = letter('c');
  a->control->start(0.001);
  b->control->start(0.002);
  c->control->start(0.003);
  a.reset();
  letPass(0.004);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("bc", order);
}

TEST_F(TimerControlTest, AnEarlierTimerIsNotHeldUpByOneThatTheLoopHasWaitedFor) {
  TimerProbe later, earlier;
  later.control->start(1000.0);
  EXPECT_FALSE(loop->turn(0));
  earlier.control->start(0.001);
  EXPECT_TRUE(loop->turn(kPatience));
  EXPECT_EQ(1, earlier.timeouts);
  EXPECT_EQ(0, later.timeouts);
}

TEST_F(TimerControlTest, ACancelledZeroTimerLeavesThoseAroundItInOrder) {
  const auto a = letter('a'), b = letter('b'), c = letter('c');
  for (const auto* timer : {&a, &b, &c}) (*timer)->control->start(0.0);
  b->control->cancel();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ("ac", order);
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
