// SPDX-License-Identifier: MIT
//
// The end of a directory of which another control watches an entry: which controls receive it.
#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyTreeEndTest : public InotifyTreeFixture {
 protected:
  // Whether the outer control receives events of the present directory.
  bool receives(const std::string& name) {
    const size_t before = outer.reports.size();
    makeAndErase(name);
    return outer.reports.size() > before && outer.reports.back() == "changed " + name;
  }

  // The outer control watches with `mask`; the inner one's client does `action` when the tree is
  // removed.
  void endTree(uint32_t mask, const std::function<void()>& action) {
    outer.reports.clear();
    watch(mask);
    whenInnerEnds(action);
    removeTree();
    settle();
  }

  // The leaf is moved out of the tree, and another tree takes its place.
  void replaceTreeWithoutLeaf() {
    move(leaf, directory.path + "/elsewhere");
    remove(top);
    makeTree();
    settle();
  }
};

constexpr uint32_t kMasksWithoutRemovals[] = {IN_CREATE, IN_MOVED_FROM | IN_MOVED_TO,
                                              IN_CLOSE_WRITE};
constexpr uint32_t kMasksWithRemovals[] = {IN_DELETE, IN_DELETE | IN_CREATE,
                                           IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO};

}  // namespace

TEST_F(InotifyTreeEndTest, IsReportedOnceToThoseWhoseMaskDoesNotReportRemovals) {
  for (const uint32_t mask : kMasksWithoutRemovals) {
    endTree(mask, makingItAgain());
    EXPECT_EQ(Reports{"deleted"}, outer.reports) << "mask " << mask;
    EXPECT_EQ(1u, kernelWatches().size());
  }
}

TEST_F(InotifyTreeEndTest, IsReportedWhenTheInnerOneAsksAgainForWhatIsGone) {
  for (const uint32_t mask : kMasksWithoutRemovals) {
    endTree(mask, nothing);
    EXPECT_EQ(Reports{"deleted"}, outer.reports) << "mask " << mask;
    makeTree();
    askForLeaf();
    outer.control->addWatch(top, IN_DELETE);
    EXPECT_TRUE(receives("one")) << "it can be watched again";
  }
}

TEST_F(InotifyTreeEndTest, IsSparedThoseWhoseMaskReportedTheRemovalAndWhosePathIsADirectoryAgain) {
  for (const uint32_t mask : kMasksWithRemovals) {
    endTree(mask, makingItAgain());
    EXPECT_EQ(Reports{"changed leaf"}, outer.reports) << "mask " << mask;
    EXPECT_EQ(2u, kernelWatches().size());
    EXPECT_TRUE(receives("one")) << "mask " << mask;
  }
}

TEST_F(InotifyTreeEndTest, IsReportedWhenTheRemovalWasReportedAndThePathLeadsNowhere) {
  for (const uint32_t mask : kMasksWithRemovals) {
    endTree(mask, nothing);
    EXPECT_EQ((Reports{"changed leaf", "changed leaf", "deleted"}), outer.reports)
        << "mask " << mask;
    EXPECT_TRUE(kernelWatches().empty());
    makeTree();
  }
}

TEST_F(InotifyTreeEndTest, IsReportedWhenAFileTookThePath) {
  endTree(IN_DELETE, [this] { touch(top); });
  EXPECT_EQ("deleted", outer.reports.back());
  EXPECT_TRUE(kernelWatches().empty());
}

TEST_F(InotifyTreeEndTest, IsReportedWhenTheWatchedEntryWasMovedOutAndNotRemoved) {
  watch(IN_DELETE);
  replaceTreeWithoutLeaf();
  EXPECT_EQ(Reports{"deleted"}, outer.reports);
  EXPECT_EQ(Reports{}, inner.reports);
}

TEST_F(InotifyTreeEndTest, IsReportedWhenOtherThingsHappenedToTheWatchedEntry) {
  watch(IN_DELETE | IN_ATTRIB);
  ASSERT_EQ(0, ::chmod(leaf.c_str(), 0750));
  settle();
  replaceTreeWithoutLeaf();
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), outer.reports);
}

TEST_F(InotifyTreeEndTest, IsReportedWhenOnlyOtherEntriesWereRemoved) {
  touch(top + "/other");
  watch(IN_DELETE);
  erase(top + "/other");
  replaceTreeWithoutLeaf();
  EXPECT_EQ((Reports{"changed other", "deleted"}), outer.reports);
}

TEST_F(InotifyTreeEndTest, IsReportedWhenNobodyWatchesTheEntryAnyMore) {
  watch(IN_DELETE);
  remove(leaf);
  settle();
  inner.control->removeWatch();
  remove(top);
  makeTree();
  settle();
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), outer.reports);
}

TEST_F(InotifyTreeEndTest, IsReportedToThoseWhoAskedForItInAnyCase) {
  endTree(IN_DELETE | IN_DELETE_SELF, makingItAgain());
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), outer.reports);
}

TEST_F(InotifyTreeEndTest, ADirectoryIsNoEntryOfItself) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(top);
  InotifyProbe other;
  outer.control->addWatch(".", IN_DELETE);
  other.control->addWatch(".", IN_DELETE);
  removeTree();
  std::filesystem::current_path(before);  // it ends when nobody is in it any more
  makeTree();
  settle();
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), outer.reports);
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), other.reports);
}

// The entry was removed before the outer control watched, so that nothing reports it.
TEST_F(InotifyTreeEndTest, IsReplacedByTheRemovalThatOnlyTheInnerOneWasReported) {
  askForLeaf();
  whenInnerEnds(makingItAgain());
  remove(leaf);
  outer.control->addWatch(top, IN_DELETE);
  remove(top);
  settle();
  EXPECT_EQ(Reports{"changed leaf"}, outer.reports);
  EXPECT_TRUE(receives("one"));
}

TEST_F(InotifyTreeEndTest, AnOldRemovalIsNotReportedAgain) {
  InotifyProbe others[2];
  for (InotifyProbe& other : others) other.control->addWatch(directory.path, IN_ATTRIB);
  askForLeaf();
  whenInnerEnds(makingItAgain());
  removeTree();
  settle();
  outer.control->addWatch(top, IN_DELETE);
  replaceTreeWithoutLeaf();
  EXPECT_EQ(Reports{"deleted"}, outer.reports);
}

TEST_F(InotifyTreeEndTest, ThatWaitsForTheTreeIsDroppedByAnotherWatch) {
  outer.onEvent = [&] {
    if (outer.reports.size() != 2) return;
    makeTree();
    outer.control->addWatch(top, IN_DELETE);
  };
  endTree(IN_DELETE, nothing);
  EXPECT_EQ((Reports{"changed leaf", "changed leaf"}), outer.reports);
  EXPECT_TRUE(receives("one"));
}

TEST_F(InotifyTreeEndTest, ThatWaitsForTheTreeIsSparedOnceItIsThere) {
  outer.onEvent = [&] {
    if (outer.reports.size() == 2) makeTree();
  };
  endTree(IN_DELETE, nothing);
  EXPECT_EQ((Reports{"changed leaf", "changed leaf"}), outer.reports);
  EXPECT_TRUE(receives("one"));
}

TEST_F(InotifyTreeEndTest, ThatWaitsForTheTreeIsNotReportedToADeletedControl) {
  endTree(IN_DELETE, [this] { outer.control->removeWatch(); });
  EXPECT_LE(outer.reports.size(), 1u);
  EXPECT_TRUE(kernelWatches().empty());
}
