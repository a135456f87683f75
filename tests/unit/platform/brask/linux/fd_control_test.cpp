// SPDX-License-Identifier: MIT
//
// Which controls get which descriptor events.
#include <memory>
#include <system_error>

#include "unit/platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

class FdControlTest : public LoopTest {
 protected:
  // The pair becomes ready, which a turn reports to the probe.
  void expectOneEvent(Pair& pair, const FdProbe& probe) {
    pair.makeReady();
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(1, probe.events);
  }

  Pair pairs[2];
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

TEST_F(FdControlTest, ReturnsItsDescriptor) {
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

TEST_F(FdControlTest, WatchingTheSameDescriptorAgainContinues) {
  FdProbe probe;
  probe.control->watch(pairs[0].here);
  probe.control->watch(pairs[0].here);
  expectOneEvent(pairs[0], probe);
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
  expectOneEvent(pairs[0], later);
  EXPECT_EQ(0, earlier.events);
}

TEST_F(FdControlTest, LosingADescriptorToAnotherControlIsNotUndoneByUnwatch) {
  FdProbe later;
  {
    FdProbe earlier;
    earlier.control->watch(pairs[0].here);
    later.control->watch(pairs[0].here);
    earlier.control->unwatch();
  }
  expectOneEvent(pairs[0], later);
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
  expectOneEvent(pairs[1], fresh);
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
