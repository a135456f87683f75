// SPDX-License-Identifier: MIT
//
// Paths that go, and paths that could not be watched.
#include <memory>

#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyEndTest : public InotifyTest {};

}  // namespace

TEST_F(InotifyEndTest, TheEndOfADirectoryIsReportedOnceForAnyMask) {
  for (const uint32_t mask :
       {uint32_t{IN_CREATE}, uint32_t{IN_MOVE_SELF}, uint32_t{IN_DELETE_SELF | IN_MOVE_SELF}}) {
    const std::string doomed = directory.make("doomed");
    InotifyProbe one, two;
    one.control->addWatch(doomed, mask);
    two.control->addWatch(doomed, IN_CREATE);
    remove(doomed);
    settle();
    EXPECT_EQ(Reports{"deleted"}, one.reports);
    EXPECT_EQ(Reports{"deleted"}, two.reports);
    EXPECT_TRUE(kernelWatches().empty());
  }
}

TEST_F(InotifyEndTest, ADirectoryCanBeWatchedAgainFromInotifyDeleted) {
  const std::string again = directory.make("again");
  InotifyProbe probe;
  probe.onEvent = [&] {
    if (probe.reports.back() != "deleted") return;
    directory.make("again");
    probe.control->addWatch(again, IN_CREATE | IN_DELETE_SELF);
  };
  probe.control->addWatch(again, IN_CREATE | IN_DELETE_SELF);
  for (int round = 0; round < 3; ++round) {
    remove(again);
    settle();
  }
  touch(again + "/one");
  settle();
  EXPECT_EQ((Reports{"deleted", "deleted", "deleted", "changed one"}), probe.reports);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyEndTest, TheEndOfADirectoryThatIsWatchedAgainAlreadyIsNotReported) {
  InotifyProbe probe;
  const std::string again = watchAndRemove(probe, "again", IN_CREATE);
  directory.make("again");
  probe.control->addWatch(again, IN_CREATE);
  touch(again + "/one");
  settle();
  EXPECT_EQ(Reports{"changed one"}, probe.reports);
}

TEST_F(InotifyEndTest, AMoveEndsTheWatchOfThoseWhoAskedAndReportsNothingMore) {
  const std::string from = directory.make("from"), to = directory.path + "/to";
  InotifyProbe asked, unasked;
  asked.control->addWatch(from, IN_CREATE | IN_MOVE_SELF | IN_DELETE_SELF);
  unasked.control->addWatch(from, IN_CREATE);
  move(from, to);
  touch(to + "/one");
  settle();
  erase(to + "/one");
  remove(to);
  settle();
  EXPECT_EQ(Reports{"deleted"}, asked.reports);
  EXPECT_EQ((Reports{"changed one", "deleted"}), unasked.reports);
}

TEST_F(InotifyEndTest, AFailedWatchIsReportedByALaterTurnWithPathAndReason) {
  InotifyProbe probe;
  probe.control->addWatch("/nonexistent/directory", IN_CREATE);
  EXPECT_TRUE(probe.reports.empty());
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"error inotify_add_watch() /nonexistent/directory: No such file or directory"},
            probe.reports);
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(InotifyEndTest, AWatchThatFailsInACallbackIsReportedByALaterTurn) {
  InotifyProbe probe;
  probe.onEvent = [&] {
    if (probe.reports.size() < 3) probe.control->addWatch("/nonexistent", IN_CREATE);
  };
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  for (size_t turns = 1; turns <= 3; ++turns) {
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(turns, probe.reports.size());
  }
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(InotifyEndTest, AFailedWatchLeavesTheControlWithoutAWatch) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  probe.control->addWatch("/nonexistent", IN_CREATE);
  touch(directory.path + "/two");
  settle();
  EXPECT_EQ(1u, probe.reports.size());
  EXPECT_TRUE(kernelWatches().empty());
}

TEST_F(InotifyEndTest, AFailureThatHasBeenRepairedOrEndedIsNotReported) {
  InotifyProbe mended, ended;
  auto deleted = std::make_unique<InotifyProbe>();
  for (InotifyProbe* probe : {&mended, &ended, deleted.get()}) {
    probe->control->addWatch("/nonexistent", IN_CREATE);
  }
  mended.control->addWatch(directory.path, IN_CREATE);
  ended.control->removeWatch();
  deleted.reset();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_TRUE(mended.reports.empty());
}
