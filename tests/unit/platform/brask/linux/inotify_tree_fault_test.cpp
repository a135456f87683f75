// SPDX-License-Identifier: MIT
//
// Watches of a directory and of the one above it, which the kernel refuses or ends.
#include <cstring>

#include "unit/platform/brask/linux/inotify_fault_fixture.h"

using namespace LoopTesting;

namespace {

// What read(2) finds when a file system is unmounted: that, before the end of each watch.
ssize_t readAsUnmounted(int fd, void* buffer, size_t size) {
  const Fault::Bypass bypass;
  const ssize_t got = ::read(fd, buffer, size);
  for (ssize_t next = 0; next < got;) {
    inotify_event event;
    char* const place = static_cast<char*>(buffer) + next;
    std::memcpy(&event, place, sizeof event);
    if (event.mask == IN_IGNORED) event.mask = IN_UNMOUNT;
    std::memcpy(place, &event, sizeof event);
    next += static_cast<ssize_t>(sizeof event + event.len);
  }
  return got;
}

// A directory and the one above it, each with its watcher.
class InotifyTreeFaultTest : public InotifyTreeFixture {
 protected:
  InotifyTreeFaultTest() { watch(); }

  std::string refusalOfTop() const {
    return "error inotify_add_watch() " + top +
           ": No space left on device (raise fs.inotify.max_user_watches)";
  }
};

}  // namespace

TEST_F(InotifyTreeFaultTest, ARefusalThatIsNoEndIsNotReportedToTheWatcherOfTheParent) {
  Fault::arm("inotify_add_watch", 1, ENOSPC);
  askForLeaf();
  settle();
  EXPECT_EQ(Reports{}, outer.reports);
  EXPECT_EQ((Reports{"error inotify_add_watch() " + leaf +
                     ": No space left on device (raise fs.inotify.max_user_watches)"}),
            inner.reports);
}

TEST_F(InotifyTreeFaultTest, AWatcherThatCannotBeResumedIsResumedLater) {
  removeTree();
  askForLeaf();
  outer.control->addWatch(top, IN_DELETE);
  makeTree();
  Fault::arm("inotify_add_watch", 2, ENOSPC);
  askForLeaf();
  EXPECT_EQ(1u, kernelWatches().size());
  askForLeaf();
  EXPECT_EQ(2u, kernelWatches().size());
}

TEST_F(InotifyTreeFaultTest, AnEndIsReportedWhenTheWatchCannotMoveAndSoIsTheRefusal) {
  whenInnerEnds(makingItAgain());
  removeTree();
  Fault::arm("inotify_add_watch", 2, ENOSPC);
  settle();
  EXPECT_EQ((Reports{"changed leaf", "deleted", refusalOfTop()}), outer.reports);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyTreeFaultTest, TheEndOfAMountIsReportedThoughItsPathIsADirectoryAgain) {
  whenInnerEnds(makingItAgain());
  removeTree();
  Fault::divert("read", readAsUnmounted);
  settle();
  EXPECT_EQ((Reports{"changed leaf", "deleted"}), outer.reports);
}

TEST_F(InotifyTreeFaultTest, AWatcherThatIsRefusedWhileItIsResumedReceivesTheReason) {
  loseTree();
  makeTree();
  Fault::arm("inotify_add_watch", 2, ENOSPC);
  askForLeaf();
  settle();
  EXPECT_EQ(Reports{refusalOfTop()}, outer.reports);
}

TEST_F(InotifyTreeFaultTest, EndsThatAnOverflowHasLostMoveTheWatchInAnyOrder) {
  outer.control->removeWatch();
  outer.control->addWatch(top, IN_DELETE);  // the later watch of the two
  whenInnerEnds(makingItAgain());
  removeTree();
  overflowAlone();
  settle();
  EXPECT_EQ((Reports{kOverflowError, "changed leaf"}), outer.reports);
  EXPECT_EQ((Reports{kOverflowError, "deleted"}), inner.reports);
  EXPECT_EQ(2u, kernelWatches().size());
}

TEST_F(InotifyTreeFaultTest, AWatchThatMovesAtTheSecondAttemptIsSparedTheEnd) {
  whenInnerEnds(makingItAgain());
  removeTree();
  Fault::arm("inotify_add_watch", 2, ENOENT);
  settle();
  EXPECT_EQ(Reports{"changed leaf"}, outer.reports);
  EXPECT_EQ(2u, kernelWatches().size());
}
