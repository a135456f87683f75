// SPDX-License-Identifier: MIT
//
// A directory and the one above it, each with its watcher, that are removed together.
#include <memory>

#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyTreeTest : public InotifyTreeFixture {
 protected:
  InotifyTreeTest() { watch(); }
};

}  // namespace

TEST_F(InotifyTreeTest, TheEndOfBothIsReportedToBoth) {
  removeTree();
  settle();
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), outer.reports);
  EXPECT_EQ(Reports{"deleted"}, inner.reports);
}

TEST_F(InotifyTreeTest, AWatcherOfATreeThatTheInnerOneMadeAgainFollowsItsPath) {
  whenInnerEnds(makingItAgain());
  removeTree();
  settle();
  touch(leaf + "/one");
  makeAndErase("two");
  EXPECT_EQ((Reports{"changed leaf", "changed two"}), outer.reports);
  EXPECT_EQ((Reports{"deleted", "changed one"}), inner.reports);
}

TEST_F(InotifyTreeTest,
       APathThatWasRemovedBeforeItIsWatchedAgainIsReportedToTheWatcherOfItsParent) {
  remove(leaf);
  askForLeaf();
  settle();
  EXPECT_EQ((Reports{"changed leaf", "changed leaf"}), outer.reports);
  EXPECT_EQ((Reports{"error inotify_add_watch() " + leaf + ": No such file or directory"}),
            inner.reports);
}

TEST_F(InotifyTreeTest, APathThatWasNeverThereIsNotReportedToTheWatcherOfItsParent) {
  InotifyProbe other;
  other.control->addWatch(top + "/other", IN_CREATE);
  inner.control->addWatch(top + "/another", IN_CREATE);
  inner.control->removeWatch();
  inner.control->addWatch(top + "/another", IN_CREATE);
  settle();
  EXPECT_EQ(Reports{}, outer.reports);
}

TEST_F(InotifyTreeTest, WatchersWhoseTreeVanishedTwiceWatchItOnceItIsThere) {
  removeTree();
  askForLeaf();
  outer.control->addWatch(top, IN_DELETE);
  settle();
  EXPECT_EQ("changed leaf", outer.reports.front());
  makeTree();
  askForLeaf();
  makeAndErase("two");
  EXPECT_EQ("changed two", outer.reports.back());
  EXPECT_EQ(2u, kernelWatches().size());
}

TEST_F(InotifyTreeTest, ALapsedWatcherThatWasDeletedIsNotTouched) {
  auto deleted = std::make_unique<InotifyProbe>();
  deleted->control->addWatch(top, IN_DELETE);
  removeTree();
  deleted->control->addWatch(top, IN_DELETE);
  deleted.reset();
  makeTree();
  askForLeaf();
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyTreeTest, ALapsedWatcherThatHasEndedIsNotTouched) {
  removeTree();
  outer.control->addWatch(top, IN_DELETE);
  askForLeaf();
  outer.control->removeWatch();
  makeTree();
  askForLeaf();
  settle();
  EXPECT_EQ(Reports{}, outer.reports);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyTreeTest, TheEmptyPathIsTheRootDirectory) {
  InotifyProbe probe;
  probe.control->addWatch("", IN_DELETE);
  settle();
  EXPECT_EQ(Reports{}, probe.reports);
  EXPECT_EQ("", probe.control->path());
  EXPECT_EQ(3u, kernelWatches().size());
}

TEST_F(InotifyTreeTest, AFileInTheWayOfAPathIsReportedAsItsEnd) {
  removeTree();
  touch(top);
  askForLeaf();
  settle();
  EXPECT_EQ((Reports{"error inotify_add_watch() " + leaf + ": Not a directory"}), inner.reports);
  EXPECT_EQ((Reports{"changed leaf", "changed leaf", "deleted"}), outer.reports);
  erase(top);
}

TEST_F(InotifyTreeTest, APathThatWasRemovedIsNotReportedToAWatcherThatDoesNotAskForDeletions) {
  InotifyProbe creations;
  creations.control->addWatch(top, IN_CREATE);
  remove(leaf);
  askForLeaf();
  settle();
  EXPECT_EQ(Reports{}, creations.reports);
  EXPECT_EQ((Reports{"changed leaf", "changed leaf"}), outer.reports);
}

TEST_F(InotifyTreeTest, ARelativePathHasTheWorkingDirectoryAsItsParent) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(top);
  outer.control->addWatch(".", IN_DELETE);
  inner.control->addWatch("leaf", IN_CREATE);
  remove(leaf);
  inner.control->addWatch("leaf", IN_CREATE);
  settle();
  std::filesystem::current_path(before);
  EXPECT_EQ((Reports{"changed leaf", "changed leaf"}), outer.reports);
}

TEST_F(InotifyTreeTest, AWatcherWhoseTreeIsNotThereWhenItEndsIsReportedTheEndOnce) {
  whenInnerEnds(nothing);
  removeTree();
  settle();
  makeTree();
  askForLeaf();
  makeAndErase("two");
  EXPECT_EQ((Reports{"changed leaf", "changed leaf", "deleted"}), outer.reports);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyTreeTest, OnlyTheWatcherOfTheTreeThatIsThereAgainIsResumed) {
  InotifyProbe elsewhere;
  const std::string other = watchAndRemove(elsewhere, "other", IN_DELETE);
  removeTree();
  elsewhere.control->addWatch(other, IN_DELETE);
  outer.control->addWatch(top, IN_DELETE);
  makeTree();
  askForLeaf();
  settle();
  EXPECT_EQ(2u, kernelWatches().size());
}
