// SPDX-License-Identifier: MIT
//
// Watches of a tree that are asked for again, or in another way: what is left of the earlier ones.
#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyTreeAgainTest : public InotifyTreeFixture {
 protected:
  InotifyTreeAgainTest() { watch(); }

  void askForLeafAgain() {
    askForLeaf();
    settle();
  }

  // Another directory takes the place of the outer one, of which the inner control knows; the
  // outer one's watch stays where it is.
  void expectOuterToStay() {
    const std::string moved = directory.path + "/moved";
    touch(top + "/one");
    move(top, moved);
    makeTree();
    askForLeaf();
    erase(moved + "/one");
    settle();
    EXPECT_EQ(Reports{"changed one"}, outer.reports);
  }
};

}  // namespace

TEST_F(InotifyTreeAgainTest, ARefusalThatWasReportedSparesNobodyTheEnd) {
  remove(leaf);
  settle();
  askForLeafAgain();
  EXPECT_EQ((Reports{"changed leaf", "changed leaf"}), outer.reports);
  remove(top);
  directory.make("top");
  settle();
  EXPECT_EQ("deleted", outer.reports.back());
  EXPECT_TRUE(kernelWatches().empty());
  askForLeafAgain();
  EXPECT_EQ(3u, outer.reports.size()) << "it has no watch any more";
}

TEST_F(InotifyTreeAgainTest, AnEndThatWasReportedLaterEndsTheWatchForGood) {
  whenInnerEnds(nothing);
  removeTree();
  settle();
  const Reports expected{"changed leaf", "changed leaf", "deleted"};
  EXPECT_EQ(expected, outer.reports);
  askForLeafAgain();
  EXPECT_EQ(expected, outer.reports);
}

TEST_F(InotifyTreeAgainTest, AnEndThatWasReportedLaterSparesNobodyTheEnd) {
  InotifyProbe outermost;
  outermost.control->addWatch(directory.path, IN_DELETE);
  whenInnerEnds(nothing);
  removeTree();
  settle();
  EXPECT_EQ(Reports{"changed top"}, outermost.reports);
  EXPECT_EQ("deleted", outer.reports.back());
  remove(directory.path);
  ASSERT_EQ(0, ::mkdir(directory.path.c_str(), 0700));
  settle();
  EXPECT_EQ((Reports{"changed top", "deleted"}), outermost.reports);
}

TEST_F(InotifyTreeAgainTest, TheLastMaskDecidesWhetherALostWatchIsResumed) {
  outer.control->removeWatch();
  InotifyProbe narrower, wider;
  narrower.control->addWatch(top, IN_DELETE);
  wider.control->addWatch(top, IN_CREATE);
  removeTree();
  narrower.control->addWatch(top, IN_CREATE);
  wider.control->addWatch(top, IN_CREATE | IN_DELETE);
  settle();
  makeTree();
  askForLeafAgain();
  touch(top + "/one");
  settle();
  EXPECT_EQ("changed one", wider.reports.back());
  EXPECT_NE("changed one", narrower.reports.back());
}

TEST_F(InotifyTreeAgainTest, AllWhoseWatchWasLostAreResumed) {
  InotifyProbe another;
  another.control->addWatch(top, IN_DELETE);
  removeTree();
  another.control->addWatch(top, IN_DELETE);
  outer.control->addWatch(top, IN_DELETE);
  makeTree();
  askForLeafAgain();
  makeAndErase("one");
  EXPECT_EQ("changed one", outer.reports.back());
  EXPECT_EQ("changed one", another.reports.back());
}

TEST_F(InotifyTreeAgainTest, ARemovalIsReportedToAllWhoWatchTheParent) {
  InotifyProbe another;
  another.control->addWatch(top, IN_DELETE);
  move(leaf, directory.path + "/elsewhere");
  askForLeafAgain();
  EXPECT_EQ(Reports{"changed leaf"}, outer.reports);
  EXPECT_EQ(Reports{"changed leaf"}, another.reports);
}

TEST_F(InotifyTreeAgainTest, ARemovalIsReportedToThoseWhoseWatchWasLost) {
  loseTree();
  askForLeafAgain();
  EXPECT_EQ(Reports{"changed leaf"}, outer.reports);
}

TEST_F(InotifyTreeAgainTest, ARemovalThatOnlyTheRefusalShowedSparesTheEnd) {
  move(leaf, directory.path + "/elsewhere");
  askForLeaf();
  remove(top);
  makeTree();
  settle();
  EXPECT_EQ(Reports{"changed leaf"}, outer.reports);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyTreeAgainTest, AnEntryWhoseOwnEndWaitsSparesTheEnd) {
  InotifyProbe outermost;
  outermost.control->addWatch(directory.path, IN_DELETE);
  whenInnerEnds(nothing);
  removeTree();
  remove(directory.path);
  EXPECT_TRUE(loop->turn(0));
  ASSERT_EQ(0, ::mkdir(directory.path.c_str(), 0700));
  settle();
  EXPECT_EQ(Reports{"changed top"}, outermost.reports);
  EXPECT_EQ("deleted", outer.reports.back());
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyTreeAgainTest, AWatchThatMovesKeepsTheMaskThatWasAddedTo) {
  outer.control->addWatch(top, IN_CREATE | IN_MASK_ADD);
  whenInnerEnds(makingItAgain());
  removeTree();
  settle();
  outer.reports.clear();
  makeAndErase("one");
  EXPECT_EQ((Reports{"changed one", "changed one"}), outer.reports);
}

TEST_F(InotifyTreeAgainTest, AWatchThatWasSetAgainByItsClientStaysWhereItIs) {
  loseTree();
  makeTree();
  outer.control->addWatch(top, IN_DELETE);
  expectOuterToStay();
}

TEST_F(InotifyTreeAgainTest, AWatchThatWasResumedStaysWhereItIs) {
  loseTree();
  makeTree();
  askForLeaf();
  expectOuterToStay();
}

TEST_F(InotifyTreeAgainTest, NothingThatWaitsForAnotherPathIsReported) {
  remove(leaf);
  askForLeaf();  // which outer is to be notified of
  outer.control->addWatch(directory.path, IN_DELETE);
  settle();
  EXPECT_EQ(Reports{}, outer.reports);
}

TEST_F(InotifyTreeAgainTest, NoRemovalIsReportedAfterTheEnd) {
  outer.control->addWatch(top, IN_DELETE | IN_DELETE_SELF);
  whenInnerEnds(nothing);
  removeTree();
  settle();
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), outer.reports);
}
