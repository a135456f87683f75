// SPDX-License-Identifier: MIT
//
// Which watchers are those of a path, of its directory and of its entries.
#include <memory>

#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyPathsTest : public InotifyTreeFixture {
 protected:
  // The inner control asks for a directory that is not there any more.
  void refuseLeaf() {
    inner.control->addWatch(leaf, IN_CREATE);
    remove(leaf);
    inner.control->addWatch(leaf, IN_CREATE);
  }

  static size_t changes(const InotifyProbe& probe) {
    return static_cast<size_t>(
        std::count(probe.reports.begin(), probe.reports.end(), "changed leaf"));
  }
};

}  // namespace

TEST_F(InotifyPathsTest, APathThatEndsWithSlashesIsThatOfTheDirectory) {
  outer.control->addWatch(top + "//", IN_DELETE);
  refuseLeaf();
  settle();
  EXPECT_EQ(2u, changes(outer));
}

TEST_F(InotifyPathsTest, AnEntryThatEndsWithSlashesIsOneOfItsDirectory) {
  outer.control->addWatch(top, IN_DELETE);
  inner.control->addWatch(leaf + "//", IN_CREATE);
  remove(leaf);
  inner.control->addWatch(leaf + "//", IN_CREATE);
  settle();
  EXPECT_EQ(2u, changes(outer));
}

TEST_F(InotifyPathsTest, TheWatcherOfANeighbourIsNotThatOfTheDirectory) {
  InotifyProbe neighbour;
  neighbour.control->addWatch(directory.make("top2"), IN_DELETE);
  refuseLeaf();
  settle();
  EXPECT_EQ(0u, changes(neighbour));
}

TEST_F(InotifyPathsTest, WatchersOfOneDirectoryHaveReportsInTheOrderOfTheirFirstWatch) {
  constexpr int kCount = 4;
  InotifyProbe probes[kCount];
  std::vector<int> order;
  for (int each : {2, 0, 3, 1}) {
    probes[each].control->addWatch(top, IN_DELETE);
    probes[each].onEvent = [&order, each] { order.push_back(each); };
  }
  remove(leaf);
  settle();
  order.clear();
  inner.control->addWatch(leaf, IN_CREATE);
  directory.make("top/leaf");
  inner.control->addWatch(leaf, IN_CREATE);
  remove(leaf);
  inner.control->addWatch(leaf, IN_CREATE);
  settle();
  EXPECT_EQ((std::vector<int>{2, 0, 3, 1, 2, 0, 3, 1}), order);
}
