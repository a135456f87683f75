// SPDX-License-Identifier: MIT
//
// Exceptions out of callbacks lose no event that was due after them.
#include <memory>
#include <stdexcept>

#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class LoopExceptionTest : public InotifyTest {};

}  // namespace

TEST_F(LoopExceptionTest, AnExceptionKeepsItsTypeAndLeavesTheLoopUsable) {
  struct Mine {
    int value;
  };
  TimerProbe timer([] { throw Mine{7}; });
  timer.control->start(0.0);
  try {
    loop->run();
    FAIL() << "the exception was swallowed";
  } catch (const Mine& mine) {
    EXPECT_EQ(7, mine.value);
  }
  timer.onTimeout = [this] { loop->stop(); };
  timer.control->start(0.0);
  loop->run();
  EXPECT_EQ(2, timer.timeouts);
}

TEST_F(LoopExceptionTest, AnExceptionDelaysNoOtherControl) {
  Pair first, second;
  FdProbe thrower([](int) { throw std::runtime_error("every time"); });
  FdProbe other;
  TimerProbe immediate, later;
  thrower.control->watch(first.here);
  other.control->watch(second.here);
  immediate.control->start(0.0);
  later.control->start(1e-9);
  first.makeReady();
  second.makeReady();
  for (int turns = 0; turns < 4; ++turns) {
    try {
      loop->turn(0);
    } catch (const std::runtime_error&) {
    }
  }
  EXPECT_GE(thrower.events, 2);
  EXPECT_GE(other.events, 1);
  EXPECT_EQ(1, immediate.timeouts);
  EXPECT_EQ(1, later.timeouts);
}

TEST_F(LoopExceptionTest, TheRestOfABatchComesOutOfTheNextTurn) {
  Pair first, second;
  int thrown = 0;
  const auto throwOnce = [&](int) {
    if (thrown++ == 0) throw std::runtime_error("once");
  };
  FdProbe one(throwOnce), two(throwOnce);
  one.control->watch(first.here);
  two.control->watch(second.here);
  first.makeReady();
  second.makeReady();
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_EQ(1, one.events + two.events);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, one.events);
  EXPECT_EQ(1, two.events);
}

TEST_F(LoopExceptionTest, TheRestOfABatchIsLookedAtAgain) {
  Pair pairs[2];
  FdProbe probes[2];
  for (int each : {0, 1}) {
    probes[each].onEvent = [&](int) { throw std::runtime_error("always"); };
    probes[each].control->watch(pairs[each].here);
    pairs[each].makeReady();
  }
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  for (Pair& pair : pairs) pair.drain();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, probes[0].events + probes[1].events);
}

TEST_F(LoopExceptionTest, DueTimersSurviveAnExceptionOfOneBeforeThem) {
  TimerProbe thrower([] { throw std::runtime_error("once"); });
  TimerProbe behind;
  thrower.control->start(0.0);
  behind.control->start(0.0);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_EQ(0, behind.timeouts);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, behind.timeouts);
}

TEST_F(LoopExceptionTest, ATimerStartedAfterAnExceptionRunsOnTheNextTurn) {
  TimerProbe thrower([] { throw std::runtime_error("once"); });
  TimerProbe behind, fresh;
  thrower.control->start(0.0);
  behind.control->start(0.0);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  fresh.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, behind.timeouts);
  EXPECT_EQ(1, fresh.timeouts);
}

TEST_F(LoopExceptionTest, AnExceptionLosesNoEventOfTheBuffer) {
  InotifyProbe first, second;
  const auto throwTwice = [thrown = std::make_shared<int>(0)] {
    if (++*thrown <= 2) throw std::runtime_error("now");
  };
  first.onEvent = second.onEvent = throwTwice;
  first.control->addWatch(directory.path, IN_CREATE);
  second.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  for (int thrown = 0; thrown < 2; ++thrown) {
    EXPECT_THROW(loop->turn(0), std::runtime_error);
    EXPECT_TRUE(readable(loop->fd()));
  }
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Reports{"changed one", "changed two"}), first.reports);
  EXPECT_EQ((Reports{"changed one", "changed two"}), second.reports);
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(LoopExceptionTest, AnExceptionOutOfInotifyDeletedLosesNoneOfTheOthers) {
  const std::string doomed = directory.make("doomed");
  InotifyProbe probes[2];
  for (InotifyProbe& probe : probes) {
    probe.onEvent = [] { throw std::runtime_error("gone"); };
    probe.control->addWatch(doomed, IN_CREATE);
  }
  remove(doomed);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_FALSE(loop->turn(0));
  for (InotifyProbe& probe : probes) EXPECT_EQ(Reports{"deleted"}, probe.reports);
}

TEST_F(LoopExceptionTest, AnExceptionOutOfInotifyErrorLosesNoneOfTheOthers) {
  InotifyProbe probes[2];
  for (InotifyProbe& probe : probes) {
    probe.onEvent = [] { throw std::runtime_error("failed"); };
    probe.control->addWatch("/nonexistent", IN_CREATE);
  }
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_FALSE(loop->turn(0));
  for (InotifyProbe& probe : probes) EXPECT_EQ(1u, probe.reports.size());
}

TEST_F(LoopExceptionTest, TheRestOfABatchThatWasClosedIsNotReported) {
  Pair pairs[2];
  FdProbe probes[2];
  for (int each : {0, 1}) {
    probes[each].onEvent = [&pairs, each](int) {
      pairs[1 - each].closeHere();
      throw std::runtime_error("closed the other");
    };
    probes[each].control->watch(pairs[each].here);
    pairs[each].makeReady();
  }
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  for (Pair& pair : pairs) {
    if (pair.here >= 0) pair.drain();
  }
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, probes[0].events + probes[1].events);
}

TEST_F(LoopExceptionTest, TheOtherWatcherOfAnEventIsReportedByTheNextTurn) {
  InotifyProbe first, second;
  const auto throwOnce = [thrown = std::make_shared<bool>(false)] {
    if (!std::exchange(*thrown, true)) throw std::runtime_error("now");
  };
  first.onEvent = second.onEvent = throwOnce;
  first.control->addWatch(directory.path, IN_CREATE);
  second.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"changed one"}, first.reports);
  EXPECT_EQ(Reports{"changed one"}, second.reports);
}
