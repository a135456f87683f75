// SPDX-License-Identifier: MIT
//
// What a turn returns and calls when the kernel has something of which little or nothing is
// reported.
#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyTurnTest : public InotifyTest {};

// The inner control watches a directory that was moved out of the outer one's.
class InotifyLoneEndTest : public InotifyTreeFixture {
 protected:
  InotifyLoneEndTest() {
    whenInnerEnds([this] { directory.make("top/leaf"); });
    askForLeaf();
  }

  // The outer control receives the removal, or asks for its watch too late.
  void removeLeafBeforeOuterComes() {
    remove(leaf);
    outer.control->addWatch(top, IN_DELETE);
    takeLeafAway();
  }
  void removeLeafAfterOuterCame() {
    outer.control->addWatch(top, IN_DELETE);
    remove(leaf);
    takeLeafAway();
    EXPECT_EQ(Reports{"changed leaf"}, std::exchange(outer.reports, {}));
  }
  void takeLeafAway() {
    settle();
    move(leaf, directory.path + "/elsewhere");
    EXPECT_FALSE(loop->turn(0));
  }

  // A turn returns `result`, after which the outer control has received these reports.
  void expectTurn(bool result, const Reports& reports) {
    EXPECT_EQ(result, loop->turn(0));
    EXPECT_EQ(reports, outer.reports);
  }

  void expectOuterToFollow() {
    makeAndErase("two");
    EXPECT_EQ("changed two", outer.reports.back());
    EXPECT_EQ(2u, kernelWatches().size());
    EXPECT_EQ(Reports{"deleted"}, inner.reports);
  }
};

}  // namespace

TEST_F(InotifyTurnTest, ReturnsFalseWhenEventsConcernNobodyAnyMore) {
  InotifyProbe before, later, other;
  other.control->addWatch(directory.path, IN_ATTRIB);
  before.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  later.control->addWatch(directory.path, IN_CREATE);
  before.control->removeWatch();
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(Reports{}, before.reports);
  EXPECT_EQ(Reports{}, later.reports);
}

TEST_F(InotifyTurnTest, ReturnsTrueWhenAnEndIsReported) {
  InotifyProbe probe;
  watchAndRemove(probe, "removed", IN_CREATE);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"deleted"}, probe.reports);
}

TEST_F(InotifyLoneEndTest, ATurnThatOnlyMovesAWatchReturnsFalse) {
  removeLeafAfterOuterCame();
  remove(top);
  directory.make("top");
  expectTurn(false, {});
  expectOuterToFollow();
}

TEST_F(InotifyLoneEndTest, SoDoesOneThatMovesItLater) {
  removeLeafAfterOuterCame();
  remove(top);
  EXPECT_FALSE(loop->turn(0));
  directory.make("top");
  expectTurn(false, {});
  expectOuterToFollow();
}

TEST_F(InotifyLoneEndTest, ATurnThatReportsARemovalInsteadOfTheEndReturnsTrue) {
  removeLeafBeforeOuterComes();
  remove(top);
  directory.make("top");
  expectTurn(true, {"changed leaf"});
  expectOuterToFollow();
}

TEST_F(InotifyLoneEndTest, SoDoesOneThatReportsItLater) {
  removeLeafBeforeOuterComes();
  remove(top);
  expectTurn(false, {});
  directory.make("top");
  expectTurn(true, {"changed leaf"});
  expectOuterToFollow();
}

TEST_F(InotifyLoneEndTest, ARemovalIsReportedWhileTheEndWaits) {
  removeLeafAfterOuterCame();
  remove(top);
  EXPECT_FALSE(loop->turn(0));
  askForLeaf();
  directory.make("top");
  settle();
  EXPECT_EQ(Reports{"changed leaf"}, outer.reports);
}

TEST_F(InotifyLoneEndTest, NoRemovalIsReportedAfterAnEndThatHasWaited) {
  removeLeafAfterOuterCame();
  remove(top);
  EXPECT_FALSE(loop->turn(0));
  askForLeaf();
  settle();
  EXPECT_EQ(Reports{"deleted"}, outer.reports);
}
