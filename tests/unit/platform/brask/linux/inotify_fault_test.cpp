// SPDX-License-Identifier: MIT
//
// Watches that the kernel refuses, and paths that change meanwhile.
#include <cstring>
#include <stdexcept>

#include "unit/platform/brask/linux/inotify_fixture.h"
#include "unit/platform/brask/linux/loop_fault_fixture.h"

using namespace LoopTesting;
namespace Fault = Zorbe::Test::Fault;

namespace {

const std::string kOverflowError =
    "error inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the "
    "limit)";

bool overflowing = false;

// What read(2) finds first when the kernel's queue was full.
ssize_t readOverflow(int fd, void* buffer, size_t size) {
  if (!std::exchange(overflowing, false)) {
    const Fault::Bypass bypass;
    return ::read(fd, buffer, size);
  }
  inotify_event event{};
  event.wd = -1;
  event.mask = IN_Q_OVERFLOW;
  std::memcpy(buffer, &event, sizeof event);
  return sizeof event;
}

// The kernel's queue was full: all that it had is lost.
ssize_t readOverflowAlone(int fd, void* buffer, size_t size) {
  if (!overflowing) return readOverflow(fd, buffer, size);
  const Fault::Bypass bypass;
  while (::read(fd, buffer, size) > 0) {
  }
  return readOverflow(fd, buffer, size);
}

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

class InotifyFaultTest : public WithFaults<InotifyTest> {
 protected:
  // The kernel reports an overflow, and then what it has.
  static void overflow() {
    overflowing = true;
    Fault::divert("read", readOverflow);
  }
  static void overflowAlone() {
    overflowing = true;
    Fault::divert("read", readOverflowAlone);
  }

  // A refused watch is reported as `error`; added again, it works.
  void expectRefusedOnce(const std::string& error) {
    InotifyProbe probe;
    probe.control->addWatch(directory.path, IN_CREATE);
    EXPECT_TRUE(loop->turn(0));
    probe.control->addWatch(directory.path, IN_CREATE);
    directory.make("one");
    settle();
    EXPECT_EQ((Told{"error " + error, "changed one"}), probe.told);
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

// A directory and the one above it, each with its watcher.
class InotifyTreeFaultTest : public InotifyFaultTest {
 protected:
  InotifyTreeFaultTest() {
    outer.control->addWatch(top, IN_DELETE);
    inner.control->addWatch(leaf, IN_CREATE);
  }

  // The inner control's client makes the tree again.
  void makeItAgain() {
    inner.onEvent = [&] {
      if (inner.told.back() != "deleted") return;
      directory.make("top");
      directory.make("top/leaf");
      inner.control->addWatch(leaf, IN_CREATE);
    };
  }
  void removeTree() {
    remove(leaf);
    remove(top);
  }

  const std::string top = directory.make("top");
  const std::string leaf = directory.make("top/leaf");
  InotifyProbe outer, inner;
};

}  // namespace

TEST_F(InotifyFaultTest, AWatchCanBeAddedOnceThereIsAnInotifyInstanceForIt) {
  Fault::arm("inotify_init1", 1, EMFILE);
  expectRefusedOnce("inotify_init1() " + directory.path +
                    ": Too many open files (raise fs.inotify.max_user_instances, or the process's "
                    "limit of open files)");
}

TEST_F(InotifyFaultTest, AWatchCanBeAddedOnceTheInotifyInstanceCanBePolled) {
  Fault::arm("epoll_ctl", 1, ENOSPC);
  expectRefusedOnce("epoll_ctl() " + directory.path +
                    ": No space left on device (raise fs.epoll.max_user_watches)");
  EXPECT_EQ(1u, Fault::calls("inotify_init1"));
}

TEST_F(InotifyFaultTest, AWatchCanBeAddedOnceThereIsRoomForIt) {
  Fault::arm("inotify_add_watch", 1, ENOSPC);
  expectRefusedOnce("inotify_add_watch() " + directory.path +
                    ": No space left on device (raise fs.inotify.max_user_watches)");
}

TEST_F(InotifyFaultTest, AnEventThatCannotBeReadIsReadByTheNextTurn) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  directory.make("one");
  Fault::arm("read", 1, EIO);
  EXPECT_EQ("EventLoop read(inotify): Input/output error", refusalOf([this] { loop->turn(0); }));
  Fault::arm("read", 1, EINTR);
  EXPECT_FALSE(loop->turn(0));
  Fault::arm("read", 1, EAGAIN);
  EXPECT_FALSE(loop->turn(0));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Told{"changed one"}, probe.told);
}

TEST_F(InotifyFaultTest, AnOverflowIsReportedWhenTheKernelsWatchesCannotBeListed) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  directory.make("one");
  overflow();
  Fault::arm("fopen", 1, EMFILE);
  EXPECT_TRUE(loop->turn(0));
  Fault::reset();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Told{kOverflowError, "changed one"}), probe.told);
}

TEST_F(InotifyFaultTest, AnEndThatAnOverflowSwallowedIsReportedAfterAnException) {
  const std::string doomed = directory.make("doomed");
  InotifyProbe probe([] { throw std::runtime_error("overflow"); });
  probe.control->addWatch(doomed, IN_CREATE);
  remove(doomed);
  overflow();
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  Fault::reset();
  probe.onEvent = {};
  EXPECT_TRUE(readable(loop->fd()));
  settle();
  EXPECT_EQ((Told{kOverflowError, "deleted"}), probe.told);
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
  EXPECT_EQ(Told{"changed one"}, stays.told);
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
  EXPECT_EQ(Told{"changed one"}, taker.told);
  EXPECT_EQ(Told{"changed two"}, stays.told);
}

TEST_F(InotifyTreeFaultTest, ARefusalThatIsNoEndIsNotReportedToTheWatcherOfTheParent) {
  Fault::arm("inotify_add_watch", 1, ENOSPC);
  inner.control->addWatch(leaf, IN_CREATE);
  settle();
  EXPECT_EQ(Told{}, outer.told);
  EXPECT_EQ((Told{"error inotify_add_watch() " + leaf +
                  ": No space left on device (raise fs.inotify.max_user_watches)"}),
            inner.told);
}

TEST_F(InotifyTreeFaultTest, AWatcherThatCannotBeResumedIsResumedLater) {
  remove(leaf);
  remove(top);
  inner.control->addWatch(leaf, IN_CREATE);
  outer.control->addWatch(top, IN_DELETE);
  directory.make("top");
  directory.make("top/leaf");
  Fault::arm("inotify_add_watch", 2, ENOSPC);
  inner.control->addWatch(leaf, IN_CREATE);
  EXPECT_EQ(1u, kernelWatches().size());
  inner.control->addWatch(leaf, IN_CREATE);
  EXPECT_EQ(2u, kernelWatches().size());
}

TEST_F(InotifyTreeFaultTest, AnEndIsReportedWhenTheWatchCannotMoveAndSoIsTheRefusal) {
  makeItAgain();
  removeTree();
  Fault::arm("inotify_add_watch", 2, ENOSPC);
  settle();
  EXPECT_EQ((Told{"changed leaf", "deleted",
                  "error inotify_add_watch() " + top +
                      ": No space left on device (raise fs.inotify.max_user_watches)"}),
            outer.told);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyTreeFaultTest, TheEndOfAMountIsReportedThoughItsPathIsADirectoryAgain) {
  makeItAgain();
  removeTree();
  Fault::divert("read", readAsUnmounted);
  settle();
  EXPECT_EQ((Told{"changed leaf", "deleted"}), outer.told);
}

TEST_F(InotifyTreeFaultTest, AWatcherThatIsRefusedWhileItIsResumedHearsWhy) {
  removeTree();
  inner.control->addWatch(leaf, IN_CREATE);
  outer.control->addWatch(top, IN_DELETE);
  settle();
  outer.told.clear();
  directory.make("top");
  directory.make("top/leaf");
  Fault::arm("inotify_add_watch", 2, ENOSPC);
  inner.control->addWatch(leaf, IN_CREATE);
  settle();
  EXPECT_EQ((Told{"error inotify_add_watch() " + top +
                  ": No space left on device (raise fs.inotify.max_user_watches)"}),
            outer.told);
}

TEST_F(InotifyTreeFaultTest, EndsThatAnOverflowSwallowedMoveTheWatchWhateverTheirOrder) {
  outer.control->removeWatch();
  outer.control->addWatch(top, IN_DELETE);  // the later watch of the two
  makeItAgain();
  removeTree();
  overflowAlone();
  settle();
  EXPECT_EQ((Told{kOverflowError, "changed leaf"}), outer.told);
  EXPECT_EQ((Told{kOverflowError, "deleted"}), inner.told);
  EXPECT_EQ(2u, kernelWatches().size());
}

TEST_F(InotifyFaultTest, AnOverflowFromBeforeAWatchIsNotReportedToIt) {
  InotifyProbe before, later;
  before.control->addWatch(directory.path, IN_CREATE);
  overflow();
  later.control->addWatch(directory.path, IN_CREATE);
  settle();
  EXPECT_EQ(Told{kOverflowError}, before.told);
  EXPECT_EQ(Told{}, later.told);
}

TEST_F(InotifyFaultTest, AWatchIsAddedWhenTheEventsFromBeforeCannotBeRead) {
  InotifyProbe first, second;
  first.control->addWatch(directory.path, IN_CREATE);
  directory.make("one");
  Fault::arm("read", 1, EIO);
  second.control->addWatch(directory.path, IN_CREATE);
  EXPECT_EQ("EventLoop read(inotify): Input/output error", refusalOf([this] { loop->turn(0); }));
  directory.make("two");
  settle();
  EXPECT_EQ((Told{"changed one", "changed two"}), first.told);
  EXPECT_EQ("changed two", second.told.back());
}

TEST_F(InotifyTreeFaultTest, AWatchThatMovesAtTheSecondAttemptIsSparedTheEnd) {
  makeItAgain();
  removeTree();
  Fault::arm("inotify_add_watch", 2, ENOENT);
  settle();
  EXPECT_EQ(Told{"changed leaf"}, outer.told);
  EXPECT_EQ(2u, kernelWatches().size());
}
