// SPDX-License-Identifier: MIT
//
// The loop itself: its turns, its ends, its place on a thread.
#include <signal.h>
#include <sys/epoll.h>
#include <sys/time.h>

#include <atomic>
#include <limits>
#include <stdexcept>
#include <thread>

#include "platform/brask/linux/loop_fixture.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;

namespace {

class EventLoopTest : public LoopTest {};

// Delivers SIGALRM again and again to whoever waits, as long as it lives.
class Interruptions {
 public:
  explicit Interruptions(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;  // no SA_RESTART
    EXPECT_EQ(0, ::sigaction(SIGALRM, &action, &before_));
    const itimerval often{{0, 2000}, {0, 2000}};
    EXPECT_EQ(0, ::setitimer(ITIMER_REAL, &often, nullptr));
  }
  ~Interruptions() {
    const itimerval never{};
    EXPECT_EQ(0, ::setitimer(ITIMER_REAL, &never, nullptr));
    EXPECT_EQ(0, ::sigaction(SIGALRM, &before_, nullptr));
  }

 private:
  struct sigaction before_ {};
};

volatile sig_atomic_t signals = 0;
EventLoop* loopToStop = nullptr;

}  // namespace

TEST_F(EventLoopTest, IsTheCurrentLoopOfItsThread) {
  EXPECT_EQ(loop.get(), &EventLoop::current());
}

TEST_F(EventLoopTest, ASecondLoopOnTheThreadIsRefusedAndTheFirstStays) {
  EXPECT_THROW(EventLoop(), std::logic_error);
  EXPECT_EQ(loop.get(), &EventLoop::current());
}

TEST_F(EventLoopTest, AnotherThreadHasNoLoopUntilItMakesOne) {
  std::thread([] {
    EXPECT_THROW(EventLoop::current(), std::logic_error);
    EventLoop own;
    EXPECT_EQ(&own, &EventLoop::current());
  }).join();
  EXPECT_EQ(loop.get(), &EventLoop::current());
}

TEST_F(EventLoopTest, GettersWithoutALoopThrow) {
  loop.reset();
  EXPECT_THROW(Brask::Platform::getFdControl(nullptr), std::logic_error);
  EXPECT_THROW(Brask::Platform::getTimerControl(nullptr), std::logic_error);
  EXPECT_THROW(Brask::Platform::getInotifyControl(nullptr), std::logic_error);
  EXPECT_THROW(EventLoop::current(), std::logic_error);
}

TEST_F(EventLoopTest, ANewLoopCanFollowOneThatWent) {
  loop.reset();
  loop = std::make_unique<EventLoop>();
  TimerProbe timer;
  timer.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
}

TEST_F(EventLoopTest, ControlsThatOutliveTheLoopCanBeDeleted) {
  Pair pair;
  Directory directory;
  FdProbe fd;
  TimerProbe immediate, later;
  InotifyProbe inotify, failed;
  fd.control->watch(pair.here);
  immediate.control->start(0.0);
  later.control->start(5.0);
  inotify.control->addWatch(directory.path, 0x200);
  failed.control->addWatch(directory.path + "/none", 0x200);
  loop.reset();
}

TEST_F(EventLoopTest, TurnOfAnIdleLoopReportsThatNothingRan) {
  EXPECT_FALSE(loop->turn(0));
  EXPECT_FALSE(loop->turn(std::numeric_limits<double>::quiet_NaN()));
}

TEST_F(EventLoopTest, TurnWaitsOutItsTime) {
  const auto start = Clock::now();
  EXPECT_FALSE(loop->turn(0.05));
  EXPECT_GE(secondsSince(start), 0.05);
}

TEST_F(EventLoopTest, TurnEndsWithTheFirstCallback) {
  TimerProbe timer;
  timer.control->start(0.01);
  EXPECT_TRUE(loop->turn(1e300));
  EXPECT_EQ(1, timer.timeouts);
}

TEST_F(EventLoopTest, TurnGoesOnWaitingAfterSignals) {
  signals = 0;
  const Interruptions interruptions([](int) { signals = signals + 1; });
  const auto start = Clock::now();
  EXPECT_FALSE(loop->turn(0.1));
  EXPECT_GE(secondsSince(start), 0.1);
  EXPECT_GT(signals, 1);
}

TEST_F(EventLoopTest, RunGoesOnWaitingAfterSignals) {
  signals = 0;
  const Interruptions interruptions([](int) { signals = signals + 1; });
  TimerProbe timer([this] { loop->stop(); });
  timer.control->start(0.1);
  loop->run();
  EXPECT_EQ(1, timer.timeouts);
  EXPECT_GT(signals, 1);
}

TEST_F(EventLoopTest, StopInACallbackEndsRun) {
  TimerProbe timer([this] { loop->stop(); });
  timer.control->start(0.0);
  loop->run();
  EXPECT_EQ(1, timer.timeouts);
}

TEST_F(EventLoopTest, StopInACallbackLetsTheTurnFinishAndStartsNoOther) {
  Pair pair;
  TimerProbe stopper([this] { loop->stop(); });
  TimerProbe behind;
  FdProbe fd;
  fd.control->watch(pair.here);
  pair.makeReady();
  stopper.control->start(0.0);
  behind.control->start(0.0);
  loop->run();
  EXPECT_EQ(1, stopper.timeouts);
  EXPECT_EQ(1, behind.timeouts);
  EXPECT_EQ(1, fd.events);
}

TEST_F(EventLoopTest, StopFromAnotherThreadEndsRun) {
  std::thread other([this] { loop->stop(); });
  loop->run();
  other.join();
}

TEST_F(EventLoopTest, StopFromASignalHandlerEndsRunAndLeavesErrnoAlone) {
  loopToStop = loop.get();
  static int errnoAfter = 0;
  const Interruptions interruptions([](int) {
    errno = E2BIG;
    loopToStop->stop();
    errnoAfter = errno;
  });
  loop->run();
  EXPECT_EQ(E2BIG, errnoAfter);
}

TEST_F(EventLoopTest, StopBeforeRunMakesOnlyTheNextRunReturnAtOnce) {
  TimerProbe timer([this] { loop->stop(); });
  timer.control->start(0.0);
  loop->stop();
  loop->stop();
  loop->run();
  EXPECT_EQ(0, timer.timeouts);
  loop->run();
  EXPECT_EQ(1, timer.timeouts);
}

TEST_F(EventLoopTest, StopBeforeRunIsNotUsedUpByATurn) {
  loop->stop();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_FALSE(loop->turn(PATIENCE));
  TimerProbe timer;
  timer.control->start(0.0);
  loop->run();
  EXPECT_EQ(0, timer.timeouts);
}

TEST_F(EventLoopTest, StopFromAnotherThreadEndsTheWaitOfATurn) {
  std::thread other([this] { loop->stop(); });
  EXPECT_FALSE(loop->turn(-1));
  other.join();
}

TEST_F(EventLoopTest, TurningInsideACallbackIsRefused) {
  int refusals = 0;
  TimerProbe timer([&] {
    EXPECT_THROW(loop->turn(0), std::logic_error);
    EXPECT_THROW(loop->run(), std::logic_error);
    ++refusals;
  });
  timer.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, refusals);
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(EventLoopTest, AnExceptionKeepsItsTypeAndLeavesTheLoopUsable) {
  struct Mine {
    int value;
  };
  TimerProbe timer([] { throw Mine{7}; });
  timer.control->start(0.0);
  try {
    loop->run();
    FAIL() << "the exception was swallowed";
  } catch (const Mine& mine) {
    EXPECT_EQ(7, mine.value);
  }
  timer.onTimeout = [this] { loop->stop(); };
  timer.control->start(0.0);
  loop->run();
  EXPECT_EQ(2, timer.timeouts);
}

TEST_F(EventLoopTest, AnExceptionHoldsUpNobodyElse) {
  Pair first, second;
  FdProbe thrower([](int) { throw std::runtime_error("every time"); });
  FdProbe other;
  TimerProbe immediate, later;
  thrower.control->watch(first.here);
  other.control->watch(second.here);
  immediate.control->start(0.0);
  later.control->start(1e-9);
  first.makeReady();
  second.makeReady();
  for (int turns = 0; turns < 4; ++turns) {
    try {
      loop->turn(0);
    } catch (const std::runtime_error&) {
    }
  }
  EXPECT_GE(thrower.events, 2);
  EXPECT_GE(other.events, 1);
  EXPECT_EQ(1, immediate.timeouts);
  EXPECT_EQ(1, later.timeouts);
}

TEST_F(EventLoopTest, TheRestOfABatchComesOutOfTheNextTurn) {
  Pair first, second;
  int thrown = 0;
  const auto throwOnce = [&](int) {
    if (thrown++ == 0) throw std::runtime_error("once");
  };
  FdProbe one(throwOnce), two(throwOnce);
  one.control->watch(first.here);
  two.control->watch(second.here);
  first.makeReady();
  second.makeReady();
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_EQ(1, one.events + two.events);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, one.events);
  EXPECT_EQ(1, two.events);
}

TEST_F(EventLoopTest, TheRestOfABatchIsLookedAtAgain) {
  Pair pairs[2];
  FdProbe probes[2];
  for (int each : {0, 1}) {
    probes[each].onEvent = [&](int) { throw std::runtime_error("always"); };
    probes[each].control->watch(pairs[each].here);
    pairs[each].makeReady();
  }
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  for (Pair& pair : pairs) pair.drain();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, probes[0].events + probes[1].events);
}

TEST_F(EventLoopTest, DueTimersSurviveAnExceptionOfOneBeforeThem) {
  TimerProbe thrower([] { throw std::runtime_error("once"); });
  TimerProbe behind;
  thrower.control->start(0.0);
  behind.control->start(0.0);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_EQ(0, behind.timeouts);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, behind.timeouts);
}

TEST_F(EventLoopTest, ATimerStartedAfterAnExceptionRunsOnTheNextTurn) {
  TimerProbe thrower([] { throw std::runtime_error("once"); });
  TimerProbe behind, fresh;
  thrower.control->start(0.0);
  behind.control->start(0.0);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  fresh.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, behind.timeouts);
  EXPECT_EQ(1, fresh.timeouts);
}

TEST_F(EventLoopTest, FdIsReadableExactlyWhileATurnHasSomethingToDo) {
  Pair pair;
  FdProbe probe([&](int) { pair.drain(); });
  probe.control->watch(pair.here);
  EXPECT_FALSE(readable(loop->fd()));
  pair.makeReady();
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(EventLoopTest, FdShowsTimers) {
  TimerProbe timer;
  timer.control->start(0.0);
  EXPECT_TRUE(readable(loop->fd()));
  timer.control->cancel();
  EXPECT_FALSE(readable(loop->fd()));
  timer.control->start(0.01);
  EXPECT_TRUE(readable(loop->fd(), static_cast<int>(PATIENCE * 1000)));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(EventLoopTest, FdShowsATimerThatARunningTurnHasMoved) {
  const int fd = loop->fd();
  TimerProbe later;
  TimerProbe mover([&] { later.control->start(0.0); });
  later.control->start(1000.0);
  mover.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_TRUE(readable(fd));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, later.timeouts);
  EXPECT_FALSE(readable(fd));
}

TEST_F(EventLoopTest, FdFallsSilentWhenTheEarliestTimerIsDeletedOrMovedAway) {
  const int fd = loop->fd();
  auto deleted = std::make_unique<TimerProbe>();
  TimerProbe moved;
  deleted->control->start(0.0);
  moved.control->start(0.0);
  deleted.reset();
  moved.control->start(1000.0);
  EXPECT_FALSE(readable(fd));
}

TEST_F(EventLoopTest, FdShowsAFailedWatchUntilItWasTold) {
  const int fd = loop->fd();
  InotifyProbe probe;
  probe.control->addWatch("/nonexistent/directory", 0x200);
  EXPECT_TRUE(readable(fd));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(readable(fd));
}

TEST_F(EventLoopTest, AStopLeavesFdSilentAfterATurn) {
  const int fd = loop->fd();
  loop->stop();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_FALSE(readable(fd));
}

TEST_F(EventLoopTest, NestsInAnotherEpoll) {
  const int outer = ::epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  ASSERT_EQ(0, ::epoll_ctl(outer, EPOLL_CTL_ADD, loop->fd(), &event));
  TimerProbe timer;
  for (int round = 1; round <= 3; ++round) {
    timer.control->start(0.001);
    EXPECT_EQ(1, ::epoll_wait(outer, &event, 1, static_cast<int>(PATIENCE * 1000)));
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(round, timer.timeouts);
    EXPECT_EQ(0, ::epoll_wait(outer, &event, 1, 0));
  }
  ::close(outer);
}

TEST_F(EventLoopTest, NestsInAnotherEventLoop) {
  Pair pair;
  FdProbe inner([&](int) { pair.drain(); });
  inner.control->watch(pair.here);
  EventLoop* innerLoop = loop.get();
  std::thread([&] {
    EventLoop outer;
    FdProbe bridge([&](int) { EXPECT_TRUE(innerLoop->turn(0)); });
    bridge.control->watch(innerLoop->fd());
    pair.makeReady();
    EXPECT_TRUE(outer.turn(PATIENCE));
    EXPECT_FALSE(outer.turn(0));
    bridge.control->unwatch();
  }).join();
  EXPECT_EQ(1, inner.events);
}

TEST_F(EventLoopTest, SigpipeIsLeftAlone) {
  struct sigaction action {};
  ASSERT_EQ(0, ::sigaction(SIGPIPE, nullptr, &action));
  EXPECT_EQ(SIG_DFL, action.sa_handler);
}

TEST_F(EventLoopTest, ItsDescriptorsDoNotOutliveExec) {
  InotifyProbe probe;
  Directory directory;
  probe.control->addWatch(directory.path, 0x200);
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const std::string target = std::filesystem::read_symlink(entry.path()).string();
    if (target.rfind("anon_inode:", 0) != 0) continue;
    const int fd = std::stoi(entry.path().filename().string());
    EXPECT_NE(0, ::fcntl(fd, F_GETFD) & FD_CLOEXEC) << target;
  }
}
