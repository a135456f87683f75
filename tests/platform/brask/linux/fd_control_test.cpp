// SPDX-License-Identifier: MIT
//
// Descriptors: who is told what, and who is told nothing any more.
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <memory>
#include <system_error>

#include "platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

class FdControlTest : public LoopTest {
 protected:
  // Makes both ready in one batch and turns once. The one that is told first
  // calls `whenFirst` with the index of the other.
  void turnBoth(const std::function<void(int)>& whenFirst) {
    for (int each : {0, 1}) {
      probes[each] = std::make_unique<FdProbe>();
      probes[each]->onEvent = [=](int) {
        if (told++ == 0) whenFirst(1 - each);
      };
      probes[each]->control->watch(pairs[each].here);
      pairs[each].makeReady();
    }
    EXPECT_TRUE(loop->turn(0));
  }

  Pair pairs[2];
  std::unique_ptr<FdProbe> probes[2];
  int told = 0;
};

int duplicateAt(int source, int number) {
  return ::dup3(source, number, O_CLOEXEC);
}

}  // namespace

TEST_F(FdControlTest, ReportsADescriptorForAsLongAsThereIsSomethingToRead) {
  Pair pair;
  FdProbe probe;
  probe.control->watch(pair.here);
  EXPECT_FALSE(loop->turn(0));
  pair.makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(2, probe.events);
  EXPECT_EQ(pair.here, probe.last);
  pair.drain();
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(FdControlTest, ReportsTheEndOfAConnection) {
  Pair pair;
  FdProbe probe;
  probe.control->watch(pair.here);
  pair.closeThere();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, probe.events);
}

TEST_F(FdControlTest, DoesNotReportThatADescriptorCanBeWritten) {
  int ends[2];
  ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
  FdProbe probe;
  probe.control->watch(ends[1]);
  EXPECT_FALSE(loop->turn(0));
  ::close(ends[0]);
  EXPECT_TRUE(loop->turn(0)) << "an error is an event";
  ::close(ends[1]);
}

TEST_F(FdControlTest, MakesTheDescriptorNonBlockingAndClosedByExec) {
  int ends[2];
  ASSERT_EQ(0, ::pipe(ends));
  FdProbe probe;
  probe.control->watch(ends[0]);
  EXPECT_NE(0, ::fcntl(ends[0], F_GETFL) & O_NONBLOCK);
  EXPECT_NE(0, ::fcntl(ends[0], F_GETFD) & FD_CLOEXEC);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST_F(FdControlTest, KnowsItsDescriptor) {
  Pair pair;
  FdProbe probe;
  EXPECT_EQ(-1, probe.control->fd());
  probe.control->watch(pair.here);
  EXPECT_EQ(pair.here, probe.control->fd());
  probe.control->unwatch();
  EXPECT_EQ(-1, probe.control->fd());
}

TEST_F(FdControlTest, UnwatchEndsTheCallbacksAndLeavesTheDescriptorOpen) {
  Pair pair;
  FdProbe probe;
  probe.control->watch(pair.here);
  pair.makeReady();
  probe.control->unwatch();
  probe.control->unwatch();
  EXPECT_FALSE(loop->turn(0));
  pair.drain();
}

TEST_F(FdControlTest, UnwatchAfterCloseIsSilent) {
  Pair pair;
  FdProbe probe;
  probe.control->watch(pair.here);
  const int number = pair.here;
  pair.closeHere();
  EXPECT_EQ(number, probe.control->fd());
  probe.control->unwatch();
  EXPECT_EQ(-1, probe.control->fd());
}

TEST_F(FdControlTest, WatchReplacesTheOldDescriptorWithoutClosingIt) {
  FdProbe probe;
  probe.control->watch(pairs[0].here);
  probe.control->watch(pairs[1].here);
  pairs[0].makeReady();
  EXPECT_FALSE(loop->turn(0));
  pairs[0].drain();
  pairs[1].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(pairs[1].here, probe.last);
}

TEST_F(FdControlTest, WatchingTheSameDescriptorAgainGoesOn) {
  FdProbe probe;
  probe.control->watch(pairs[0].here);
  probe.control->watch(pairs[0].here);
  pairs[0].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, probe.events);
}

TEST_F(FdControlTest, ARefusedDescriptorThrowsAndLeavesNothingWatched) {
  FdProbe probe;
  for (const int bad : {-1, 1 << 20}) {
    probe.control->watch(pairs[0].here);
    EXPECT_THROW(probe.control->watch(bad), std::system_error);
    EXPECT_EQ(-1, probe.control->fd());
  }
  pairs[0].makeReady();
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(FdControlTest, ARegularFileIsRefusedWithTheReason) {
  Directory directory;
  touch(directory.path + "/file");
  const int file = ::open((directory.path + "/file").c_str(), O_RDONLY | O_CLOEXEC);
  FdProbe probe;
  try {
    probe.control->watch(file);
    ADD_FAILURE() << "watched a regular file";
  } catch (const std::system_error& refusal) {
    EXPECT_EQ(EPERM, refusal.code().value());
    EXPECT_EQ("FdControl::watch() epoll_ctl() descriptor " + std::to_string(file) +
                  ": Operation not permitted",
              std::string(refusal.what()));
  }
  EXPECT_EQ(-1, probe.control->fd());
  ::close(file);
}

TEST_F(FdControlTest, TheLaterOfTwoControlsTakesADescriptorOver) {
  FdProbe earlier, later;
  earlier.control->watch(pairs[0].here);
  later.control->watch(pairs[0].here);
  EXPECT_EQ(-1, earlier.control->fd());
  pairs[0].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(0, earlier.events);
  EXPECT_EQ(1, later.events);
}

TEST_F(FdControlTest, LosingADescriptorToAnotherControlIsNotUndoneByUnwatch) {
  FdProbe later;
  {
    FdProbe earlier;
    earlier.control->watch(pairs[0].here);
    later.control->watch(pairs[0].here);
    earlier.control->unwatch();
  }
  pairs[0].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, later.events);
}

TEST_F(FdControlTest, AReusedNumberBelongsToWhoWatchedItLast) {
  auto stale = std::make_unique<FdProbe>();
  FdProbe fresh;
  const int number = pairs[0].here;
  stale->control->watch(number);
  pairs[0].closeHere();
  ASSERT_EQ(number, duplicateAt(pairs[1].here, number));
  pairs[0].here = number;
  fresh.control->watch(number);
  stale->control->unwatch();
  stale.reset();
  pairs[1].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, fresh.events);
}

TEST_F(FdControlTest, RewatchingAControlWhoseNumberWasReusedLeavesTheOtherAlone) {
  FdProbe stale, fresh;
  Pair third;
  const int number = pairs[0].here;
  stale.control->watch(number);
  pairs[0].closeHere();
  ASSERT_EQ(number, duplicateAt(pairs[1].here, number));
  pairs[0].here = number;
  fresh.control->watch(number);
  stale.control->watch(third.here);
  pairs[1].makeReady();
  third.makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, fresh.events);
  EXPECT_EQ(1, stale.events);
  EXPECT_EQ(third.here, stale.last);
}

TEST_F(FdControlTest, ACallbackMayDeleteItsOwnHandlerAndControl) {
  auto* probe = new FdProbe;
  probe->onEvent = [&](int) {
    ++told;
    delete probe;
  };
  probe->control->watch(pairs[0].here);
  pairs[0].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, told);
}

TEST_F(FdControlTest, ADeletedControlIsNotToldOfTheSameBatch) {
  turnBoth([this](int other) { probes[other].reset(); });
  EXPECT_EQ(1, told);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(2, told);
}

TEST_F(FdControlTest, AnUnwatchedControlIsNotToldOfTheSameBatch) {
  turnBoth([this](int other) { probes[other]->control->unwatch(); });
  EXPECT_EQ(1, told);
}

TEST_F(FdControlTest, ARewatchedDescriptorIsToldByTheNextTurn) {
  turnBoth([this](int other) { probes[other]->control->watch(pairs[other].here); });
  EXPECT_EQ(1, told);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(3, told);
}

TEST_F(FdControlTest, ANumberReusedWithinABatchDoesNotInheritTheEvent) {
  Pair silent;
  FdProbe fresh;
  turnBoth([&](int other) {
    const int number = pairs[other].here;
    pairs[other].closeHere();
    ASSERT_EQ(number, duplicateAt(silent.here, number));
    pairs[other].here = number;
    fresh.control->watch(number);
  });
  EXPECT_EQ(1, told);
  EXPECT_EQ(0, fresh.events);
  silent.makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, fresh.events);
}

TEST_F(FdControlTest, ATakenOverDescriptorIsToldToTheNewControlOnly) {
  FdProbe taker;
  turnBoth([&](int other) { taker.control->watch(pairs[other].here); });
  EXPECT_EQ(1, told);
  EXPECT_EQ(0, taker.events);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, taker.events);
}

TEST_F(FdControlTest, ADescriptorThatIsReadyWhenWatchedInACallbackIsTold) {
  FdProbe second;
  FdProbe first([&](int) { second.control->watch(pairs[1].here); });
  first.control->watch(pairs[0].here);
  pairs[0].makeReady();
  pairs[1].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(0, second.events);
  first.control->unwatch();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, second.events);
}

TEST_F(FdControlTest, ADescriptorClosedWhileADuplicateLivesDoesNotKeepTheLoopBusy) {
  FdProbe probe;
  FdProbe other;
  probe.control->watch(pairs[0].here);
  other.control->watch(pairs[1].here);
  const int duplicate = ::fcntl(pairs[0].here, F_DUPFD_CLOEXEC, 0);
  pairs[0].makeReady();
  pairs[0].closeHere();
  probe.control->unwatch();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_FALSE(readable(loop->fd()));
  pairs[1].makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(0, probe.events);
  EXPECT_EQ(1, other.events);
  ::close(duplicate);
}

TEST_F(FdControlTest, MoreDescriptorsThanFitABatchAreAllTold) {
  constexpr int many = 3000;
  const int source = ::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
  std::vector<std::unique_ptr<FdProbe>> all;
  std::vector<int> duplicates;
  for (int each = 0; each < many; ++each) {
    duplicates.push_back(::fcntl(source, F_DUPFD_CLOEXEC, 0));
    ASSERT_GE(duplicates.back(), 0);
    all.push_back(std::make_unique<FdProbe>());
    all.back()->control->watch(duplicates.back());
  }
  TimerProbe timer;
  timer.control->start(1e-9);
  for (int turns = 0; turns < 4; ++turns) EXPECT_TRUE(loop->turn(0));
  for (const auto& probe : all) EXPECT_GE(probe->events, 1);
  EXPECT_EQ(1, timer.timeouts);
  all.clear();
  for (const int duplicate : duplicates) ::close(duplicate);
  ::close(source);
}
