// SPDX-License-Identifier: MIT
//
// The loop inside another loop: fd() is readable when it has to be turned.
#include <sys/epoll.h>

#include <thread>

#include "fault/fault.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;

namespace {

class LoopNestingTest : public LoopTest {
 protected:
  /// fd() is readable until the timer has expired.
  void expectShownOnce(int fd, const TimerProbe& timer) {
    EXPECT_TRUE(readable(fd));
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(1, timer.timeouts);
    EXPECT_FALSE(readable(fd));
  }
};

}  // namespace

TEST_F(LoopNestingTest, FdIsReadableExactlyWhileATurnHasSomethingToDo) {
  Pair pair;
  FdProbe probe([&](int) { pair.drain(); });
  probe.control->watch(pair.here);
  EXPECT_FALSE(readable(loop->fd()));
  pair.makeReady();
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(LoopNestingTest, FdShowsTimers) {
  TimerProbe timer;
  timer.control->start(0.0);
  EXPECT_TRUE(readable(loop->fd()));
  timer.control->cancel();
  EXPECT_FALSE(readable(loop->fd()));
  timer.control->start(0.01);
  EXPECT_TRUE(readable(loop->fd(), static_cast<int>(kPatience * 1000)));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(LoopNestingTest, FdAsksForATurnWhenTheKernelRefusesToSetTheTimer) {
  const int fd = loop->fd();
  TimerProbe timer;
  Fault::arm("timerfd_settime", 1, ENOMEM);
  timer.control->start(0.0);
  expectShownOnce(fd, timer);
}

TEST_F(LoopNestingTest, AnInterruptedReadOfAStopIsMadeAgain) {
  loop->stop();
  const auto armed = Fault::arm("read", 1, EINTR);
  EXPECT_FALSE(loop->turn(0));
  loop->run();
  EXPECT_EQ(1u, armed.fired());
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(LoopNestingTest, FdShowsATimerThatARunningTurnHasMoved) {
  const int fd = loop->fd();
  TimerProbe later;
  TimerProbe mover([&] { later.control->start(0.0); });
  later.control->start(1000.0);
  mover.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  expectShownOnce(fd, later);
}

TEST_F(LoopNestingTest, FdFallsSilentWhenTheEarliestTimerIsDeletedOrMovedAway) {
  const int fd = loop->fd();
  auto deleted = std::make_unique<TimerProbe>();
  TimerProbe moved;
  deleted->control->start(0.0);
  moved.control->start(0.0);
  deleted.reset();
  moved.control->start(1000.0);
  EXPECT_FALSE(readable(fd));
}

TEST_F(LoopNestingTest, FdShowsAFailedWatchUntilItWasReported) {
  const int fd = loop->fd();
  InotifyProbe probe;
  probe.control->addWatch("/nonexistent/directory", 0x200);
  EXPECT_TRUE(readable(fd));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(readable(fd));
}

TEST_F(LoopNestingTest, AStopLeavesFdSilentAfterATurn) {
  const int fd = loop->fd();
  loop->stop();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_FALSE(readable(fd));
}

TEST_F(LoopNestingTest, NestsInAnotherEpoll) {
  const int outer = ::epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  ASSERT_EQ(0, ::epoll_ctl(outer, EPOLL_CTL_ADD, loop->fd(), &event));
  TimerProbe timer;
  for (int round = 1; round <= 3; ++round) {
    timer.control->start(0.001);
    EXPECT_EQ(1, ::epoll_wait(outer, &event, 1, static_cast<int>(kPatience * 1000)));
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(round, timer.timeouts);
    EXPECT_EQ(0, ::epoll_wait(outer, &event, 1, 0));
  }
  ::close(outer);
}

TEST_F(LoopNestingTest, NestsInAnotherEventLoop) {
  Pair pair;
  FdProbe inner([&](int) { pair.drain(); });
  inner.control->watch(pair.here);
  EventLoop* innerLoop = loop.get();
  std::thread([&] {
    EventLoop outer;
    FdProbe bridge([&](int) { EXPECT_TRUE(innerLoop->turn(0)); });
    bridge.control->watch(innerLoop->fd());
    pair.makeReady();
    EXPECT_TRUE(outer.turn(kPatience));
    EXPECT_FALSE(outer.turn(0));
    bridge.control->unwatch();
  }).join();
  EXPECT_EQ(1, inner.events);
}

TEST_F(LoopNestingTest, AStopInACallbackLeavesFdSilent) {
  const int fd = loop->fd();
  TimerProbe timer([this] { loop->stop(); });
  timer.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(readable(fd));
}

TEST_F(LoopNestingTest, FdThatACallbackAskedForShowsWhatThatCallbackLeft) {
  int fd = -1;
  TimerProbe later;
  TimerProbe asking([&] {
    fd = loop->fd();
    later.control->start(0.0);
  });
  asking.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  expectShownOnce(fd, later);
}

TEST_F(LoopNestingTest, FdShowsAZeroTimerThatAnExpiredOneHasStarted) {
  const int fd = loop->fd();
  TimerProbe immediate;
  TimerProbe expired([&] { immediate.control->start(0.0); });
  expired.control->start(0.001);
  ASSERT_TRUE(readable(fd, static_cast<int>(kPatience * 1000)));
  EXPECT_TRUE(loop->turn(0));
  expectShownOnce(fd, immediate);
}
