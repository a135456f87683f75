// SPDX-License-Identifier: MIT
//
// The kernel's watches: which calls are made for them, and paths that change in between.
#include <algorithm>
#include <memory>
#include <new>

#include "support/descriptor_zero.h"
#include "support/failing_memory.h"
#include "unit/platform/brask/linux/inotify_fault_fixture.h"

using namespace LoopTesting;
namespace Memory = Zorbe::Test::Memory;

namespace {

class InotifyWatchesTest : public InotifyFaultTest {
 protected:
  // One probe for each of so many directories of the test's own.
  std::vector<std::unique_ptr<InotifyProbe>> watchMany(int count) const {
    std::vector<std::unique_ptr<InotifyProbe>> probes;
    for (int each = 0; each < count; ++each) {
      probes.push_back(std::make_unique<InotifyProbe>());
      probes.back()->control->addWatch(directory.make(std::to_string(each)), IN_CREATE);
    }
    return probes;
  }
};

// One of two watchers of a directory leaves it, while its path comes to lead elsewhere.
class InotifyRaceTest : public InotifyFaultTest {
 protected:
  InotifyRaceTest() {
    stays.control->addWatch(path, IN_CREATE);
    leaves.control->addWatch(path, IN_CREATE | IN_DELETE);
  }

  const std::string path = directory.make("d");
  const std::string moved = directory.path + "/moved";
  InotifyProbe stays, leaves;
};

}  // namespace

TEST_F(InotifyWatchesTest, NothingIsAskedOfTheKernelForAWatchThatItHasEnded) {
  const std::string doomed = directory.make("doomed");
  InotifyProbe one, two;
  one.control->addWatch(doomed, IN_CREATE);
  two.control->addWatch(doomed, IN_ATTRIB);
  remove(doomed);
  Fault::reset();
  settle();
  EXPECT_EQ("deleted", one.reports.back());
  EXPECT_EQ("deleted", two.reports.back());
  EXPECT_EQ(0u, Fault::calls("inotify_add_watch"));
  EXPECT_EQ(0u, Fault::calls("inotify_rm_watch"));
}

TEST_F(InotifyWatchesTest, AReadThatBringsNothingIsTheLastBeforeAWatchIsAdded) {
  InotifyProbe first, second;
  first.control->addWatch(directory.path, IN_CREATE);
  directory.make("one");
  Fault::reset();
  Fault::armResult("read", 1, 0);
  errno = EIO;  // which nobody reported
  second.control->addWatch(directory.path, IN_CREATE);
  EXPECT_EQ(1u, Fault::calls("read"));
  settle();
  EXPECT_EQ(Reports{"changed one"}, first.reports);
}

TEST_F(InotifyWatchesTest, TheInotifyInstanceMayBeDescriptorZero) {
  const Zorbe::Test::DescriptorZero zero;
  zero.free();
  Fault::arm("epoll_ctl", 1, ENOSPC);  // so that it is asked for again
  watchMany(2);
  EXPECT_EQ(1u, Fault::calls("inotify_init1"));
  loop.reset();
}

TEST_F(InotifyWatchesTest, ThatComeAndGoLeaveNoMemoryBehind) {
  watchMany(1);
  const long before = Memory::blocks();
  for (int round = 0; round < 10; ++round) watchMany(1);
  EXPECT_EQ(before, Memory::blocks());
}

TEST_F(InotifyWatchesTest, AnOverflowEndsNoneThatTheKernelStillHas) {
  const auto probes = watchMany(40);
  touch(directory.path + "/0/one");
  overflowAlone();
  settle();
  for (const auto& probe : probes) EXPECT_EQ(Reports{kOverflowError}, probe->reports);
}

TEST_F(InotifyWatchesTest, EndsThatAnOverflowSwallowedAreReportedInTheOrderOfTheWatches) {
  const auto probes = watchMany(40);
  std::vector<int> ended;
  for (int each = 0; each < 40; ++each) {
    InotifyProbe& probe = *probes[static_cast<size_t>(each)];
    probe.onEvent = [&probe, &ended, each] {
      if (probe.reports.back() == "deleted") ended.push_back(each);
    };
    remove(directory.path + "/" + std::to_string(each));
  }
  overflowAlone();
  settle();
  EXPECT_EQ(40u, ended.size());
  EXPECT_TRUE(std::is_sorted(ended.begin(), ended.end()));
}

TEST_F(InotifyWatchesTest, AWatchThatThereIsNoMemoryForReceivesNoOverflow) {
  unsigned long nth = 1;
  for (bool failed = true; failed; ++nth) {
    InotifyProbe probe;
    Memory::fail(nth, Memory::Failing::kOnce);
    try {
      probe.control->addWatch(directory.path, IN_CREATE);
      failed = false;
    } catch (const std::bad_alloc&) {
    }
    Memory::stopFailing();
    InotifyProbe other;
    other.control->addWatch(directory.path, IN_DELETE_SELF | IN_ATTRIB);
    ASSERT_EQ(0, ::chmod(directory.path.c_str(), nth % 2 != 0 ? 0750 : 0700));
    overflowAlone();
    settle();
    EXPECT_EQ(Reports{kOverflowError}, other.reports);
    EXPECT_EQ(failed ? Reports{} : Reports{kOverflowError}, probe.reports) << "block " << nth;
  }
}

TEST_F(InotifyRaceTest, ADirectoryThatTookThePathIsNotWatched) {
  Fault::before("inotify_add_watch", 2, [this] {
    move(path, moved);
    directory.make("d");
  });
  leaves.control->removeWatch();
  EXPECT_EQ(1u, kernelWatches().size());
  touch(moved + "/one");
  touch(path + "/two");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"changed one"}, stays.reports);
}

TEST_F(InotifyRaceTest, AWatchedDirectoryThatTookThePathReceivesAllThatItAskedFor) {
  const std::string other = directory.make("other");
  InotifyProbe taker;
  taker.control->addWatch(other, IN_DELETE | IN_ATTRIB);
  Fault::before("inotify_add_watch", 2, [&] {
    move(path, moved);
    move(other, path);
  });
  leaves.control->removeWatch();
  touch(path + "/one");
  erase(path + "/one");
  touch(moved + "/two");
  settle();
  EXPECT_EQ(2u, kernelWatches().size());
  EXPECT_EQ(Reports{"changed one"}, taker.reports);
  EXPECT_EQ(Reports{"changed two"}, stays.reports);
}

TEST_F(InotifyRaceTest, AWatchedDirectoryThatTookThePathLosesNothingMeanwhile) {
  const std::string other = directory.make("other");
  InotifyProbe taker;
  taker.control->addWatch(other, IN_DELETE);
  touch(other + "/one");
  Fault::before("inotify_add_watch", 1, [&] {
    move(path, moved);
    move(other, path);
  });
  Fault::before("inotify_add_watch", 2, [&] { erase(path + "/one"); });
  leaves.control->removeWatch();
  settle();
  EXPECT_EQ(Reports{"changed one"}, taker.reports);
}

TEST_F(InotifyRaceTest, NeitherDoesOneThatTookItNext) {
  const std::string other = directory.make("other"), third = directory.make("third");
  InotifyProbe taker, next;
  taker.control->addWatch(other, IN_DELETE);
  next.control->addWatch(third, IN_ATTRIB);
  touch(third + "/one");
  Fault::before("inotify_add_watch", 1, [&] {
    move(path, moved);
    move(other, path);
  });
  Fault::before("inotify_add_watch", 2, [&] {
    move(path, other);
    move(third, path);
  });
  leaves.control->removeWatch();
  ASSERT_EQ(0, ::chmod((path + "/one").c_str(), 0640));
  settle();
  EXPECT_EQ(Reports{"changed one"}, next.reports);
}
