// SPDX-License-Identifier: MIT
//
// Watches that the kernel refuses, and events that it cannot deliver.
#include <stdexcept>

#include "unit/platform/brask/linux/inotify_fault_fixture.h"

using namespace LoopTesting;

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
  EXPECT_EQ(Reports{"changed one"}, probe.reports);
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
  EXPECT_EQ((Reports{kOverflowError, "changed one"}), probe.reports);
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
  EXPECT_EQ((Reports{kOverflowError, "deleted"}), probe.reports);
}

TEST_F(InotifyFaultTest, AnOverflowFromBeforeAWatchIsNotReportedToIt) {
  InotifyProbe before, later;
  before.control->addWatch(directory.path, IN_CREATE);
  overflow();
  later.control->addWatch(directory.path, IN_CREATE);
  settle();
  EXPECT_EQ(Reports{kOverflowError}, before.reports);
  EXPECT_EQ(Reports{}, later.reports);
}

TEST_F(InotifyFaultTest, AnOverflowFromBeforeAWatchTakesNothingFromIt) {
  const std::string doomed = directory.make("doomed");
  InotifyProbe before, later;
  before.control->addWatch(directory.path, IN_CREATE);
  overflow();
  later.control->addWatch(doomed, IN_CREATE);
  touch(doomed + "/one");
  erase(doomed + "/one");
  remove(doomed);
  settle();
  EXPECT_EQ(Reports{kOverflowError}, before.reports);
  EXPECT_EQ((Reports{"changed one", "deleted"}), later.reports);
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
  EXPECT_EQ((Reports{"changed one", "changed two"}), first.reports);
  EXPECT_EQ("changed two", second.reports.back());
}
