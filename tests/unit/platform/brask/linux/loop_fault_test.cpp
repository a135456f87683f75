// SPDX-License-Identifier: MIT
//
// What the loop does when the kernel refuses what it asks for.
#include <sys/eventfd.h>

#include <stdexcept>
#include <system_error>

#include "unit/platform/brask/linux/listener.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;
using Fault::arm;
using Fault::calls;
using Fault::kForever;
using Fault::reset;

namespace {

class LoopFaultTest : public LoopTest {
 protected:
  // A loop that could not be made leaves nothing open.
  void expectNoLoop(const std::string& text) {
    const size_t before = Zorbe::Test::Census::take().count();
    EXPECT_EQ(text, refusalOf([] { EventLoop refused; }));
    EXPECT_EQ(before, Zorbe::Test::Census::take().count());
    EXPECT_THROW(EventLoop::current(), std::logic_error);
  }

  // A registration ends, but the kernel still reports the descriptor, which is ready.
  void strand(Pair& pair) {
    FdProbe probe;
    probe.control->watch(pair.here);
    closeDuplicate();
    duplicate_ = ::fcntl(pair.here, F_DUPFD_CLOEXEC, 0);
    pair.makeReady();
    pair.closeHere();
  }
  ~LoopFaultTest() override { closeDuplicate(); }
  void closeDuplicate() {
    if (duplicate_ >= 0) ::close(duplicate_);
  }

  void turnOften(int turns) {
    for (int each = 0; each < turns; ++each) loop->turn(0);
  }

  /// A closed descriptor is dropped although this call fails once, and `live` gives its event.
  void expectDroppedDespite(const char* call, unsigned occurrence, int error, Pair& live) {
    Pair closed;
    FdProbe probe;
    probe.control->watch(live.here);
    strand(closed);
    arm(call, occurrence, error);
    turnOften(10);
    EXPECT_EQ(2u, calls("epoll_create1"));
    live.makeReady();
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(1, probe.events);
  }

 private:
  int duplicate_ = -1;
};

}  // namespace

TEST_F(LoopFaultTest, ALoopThatGetsNoDescriptorIsNotMade) {
  loop.reset();
  for (const std::string call : {"epoll_create1", "eventfd", "timerfd_create"}) {
    arm(call, 1, EMFILE);
    expectNoLoop("EventLoop " + call + "(): Too many open files");
  }
}

TEST_F(LoopFaultTest, ALoopWhoseOwnDescriptorsCannotBePolledIsNotMade) {
  loop.reset();
  for (const unsigned which : {1u, 2u}) {
    arm("epoll_ctl", which, ENOMEM);
    expectNoLoop("EventLoop epoll_ctl(): Cannot allocate memory");
  }
}

TEST_F(LoopFaultTest, AnErrorOfTheWaitComesOutOfTheTurnAndLosesNothing) {
  Pair pair;
  FdProbe probe;
  probe.control->watch(pair.here);
  pair.makeReady();
  arm("epoll_wait", 1, EBADF);
  EXPECT_EQ("EventLoop epoll_wait(): Bad file descriptor", refusalOf([this] { loop->turn(0); }));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, probe.events);
}

TEST_F(LoopFaultTest, AnInterruptedWaitForEverContinues) {
  TimerProbe timer;
  timer.control->start(0.001);
  const auto interrupted = arm("epoll_wait", 1, EINTR, 3);
  EXPECT_TRUE(loop->turn(-1));
  EXPECT_EQ(3u, interrupted.fired());
  EXPECT_EQ(1, timer.timeouts);
}

TEST_F(LoopFaultTest, AStopWhoseDescriptorCannotBeReadStaysInForce) {
  loop->stop();
  arm("read", 1, EIO);
  EXPECT_EQ("EventLoop read(eventfd): Input/output error", refusalOf([this] { loop->turn(0); }));
  loop->run();
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(LoopFaultTest, ADescriptorWhoseFlagsCannotBeSetIsNotWatched) {
  const struct {
    int flags;
    unsigned call;
    const char* what;
  } cases[] = {{EFD_CLOEXEC, 2, "O_NONBLOCK"}, {EFD_NONBLOCK, 3, "FD_CLOEXEC"}};
  for (const auto& each : cases) {
    const int fd = ::eventfd(1, each.flags);
    FdProbe probe;
    arm("fcntl", each.call, EPERM);
    EXPECT_EQ(std::string("FdControl::watch() fcntl(") + each.what + ") descriptor " +
                  std::to_string(fd) + ": Operation not permitted",
              refusalOf([&] { probe.control->watch(fd); }));
    EXPECT_EQ(-1, probe.control->fd());
    EXPECT_FALSE(loop->turn(0));
    ::close(fd);
  }
}

TEST_F(LoopFaultTest, ADescriptorThatCannotBeTakenOverIsNotWatched) {
  Pair pair;
  FdProbe probe;
  arm("epoll_ctl", 1, EEXIST);
  arm("epoll_ctl", 2, ENOMEM);
  EXPECT_EQ("FdControl::watch() epoll_ctl() descriptor " + std::to_string(pair.here) +
                ": Cannot allocate memory",
            refusalOf([&] { probe.control->watch(pair.here); }));
  EXPECT_EQ(-1, probe.control->fd());
  probe.control->watch(pair.here);
  pair.makeReady();
  EXPECT_TRUE(loop->turn(0));
}

TEST_F(LoopFaultTest, AClosedDescriptorIsShedWhenThereIsADescriptorForThat) {
  Pair pair;
  strand(pair);
  const auto refused = arm("epoll_create1", 1, EMFILE, 3);
  turnOften(10);
  EXPECT_EQ(3u, refused.fired());
  EXPECT_EQ(4u, calls("epoll_create1"));
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(LoopFaultTest, NothingIsForgottenWhenAClosedDescriptorCannotBeShed) {
  Pair closed, live;
  Directory directory;
  FdProbe probe;
  InotifyProbe changes;
  probe.control->watch(live.here);
  changes.control->addWatch(directory.path, 0x100);  // IN_CREATE
  strand(closed);
  // Of the stop, the alarm, the watched directories and the live descriptor.
  for (const unsigned which : {1u, 2u, 3u, 4u}) {
    const auto refused = arm("epoll_ctl", which, which % 2 == 0 ? ENOSPC : ENOMEM, kForever);
    loop->turn(0);
    EXPECT_LE(1u, refused.fired());
    live.makeReady();
    directory.make(std::to_string(which));
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(static_cast<int>(which), probe.events);
    ASSERT_EQ(which, changes.reports.size());
    EXPECT_EQ("changed " + std::to_string(which), changes.reports.back());
    live.drain();
    reset();
  }
}

TEST_F(LoopFaultTest, AClosedDescriptorIsShedOnceEverythingElseCanBeWatchedAgain) {
  Pair live;
  expectDroppedDespite("epoll_ctl", 3, ENOSPC, live);
  live.drain();
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(LoopFaultTest, ADescriptorThatWasClosedWithoutNoticeDoesNotKeepAnotherFromBeingDropped) {
  Pair stranded, closed;
  FdProbe probe;
  probe.control->watch(closed.here);
  closed.closeHere();
  strand(stranded);
  turnOften(10);
  EXPECT_EQ(1u, calls("epoll_create1"));
  probe.control->unwatch();
}

TEST_F(LoopFaultTest, WhatStandsInAClosedDescriptorsPlaceDoesNotKeepAnotherFromBeingDropped) {
  for (const int error : {EBADF, EPERM, EINVAL, ELOOP}) {
    Pair stranded, replaced;
    FdProbe probe;
    probe.control->watch(replaced.here);
    strand(stranded);
    const unsigned before = calls("epoll_create1");
    arm("epoll_ctl", 3, error);
    turnOften(10);
    EXPECT_EQ(before + 1, calls("epoll_create1")) << error;
  }
}

TEST_F(LoopFaultTest, AClosedDescriptorIsShedByALaterTurnWhenTheFirstCannotReplaceTheOldOne) {
  Pair live;
  expectDroppedDespite("dup3", 1, EBUSY, live);
}

TEST_F(LoopFaultTest, AListenerStaysPausedWhenAClosedDescriptorIsShed) {
  Pair pair;
  Listener listener;
  listener.connect();
  FdProbe listening;
  listening.control->watch(listener.fd);
  strand(pair);
  arm("eventfd", 1, EMFILE, kForever);
  const auto refused = arm("epoll_create1", 1, EMFILE, 30);
  turnOften(60);
  EXPECT_EQ(30u, refused.fired());
  const int before = listening.events;
  EXPECT_LT(before, 30);
  turnOften(10);
  EXPECT_EQ(before, listening.events);
}

TEST_F(LoopFaultTest, ALoopThatIsPolledFromOutsideKeepsItsDescriptor) {
  Pair closed, other;
  FdProbe probe;
  probe.control->watch(other.here);
  const int fd = loop->fd();
  strand(closed);
  turnOften(3);
  EXPECT_EQ(0u, calls("epoll_create1"));
  other.makeReady();
  EXPECT_TRUE(readable(fd));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, probe.events);
}

TEST_F(LoopFaultTest, WatchedDirectoriesAreReportedAfterAClosedDescriptorWasDropped) {
  Pair pair;
  Directory directory;
  InotifyProbe probe;
  probe.control->addWatch(directory.path, 0x100);  // IN_CREATE
  strand(pair);
  loop->turn(0);
  EXPECT_EQ(1u, calls("epoll_create1"));
  directory.make("one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(std::vector<std::string>{"changed one"}, probe.reports);
}
