// SPDX-License-Identifier: MIT
//
// The loop itself: its turns, its ends, its place on a thread.
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <limits>
#include <stdexcept>
#include <thread>

#include "unit/platform/brask/linux/loop_fixture.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;

namespace {

class EventLoopTest : public LoopTest {};

// Delivers SIGALRM periodically, for its lifetime.
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
    // One that is still on its way, as it may be under an emulator, goes nowhere.
    EXPECT_NE(SIG_ERR, ::signal(SIGALRM, SIG_IGN));
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

TEST_F(EventLoopTest, TurnContinuesToWaitAfterSignals) {
  signals = 0;
  const Interruptions interruptions([](int) { signals = signals + 1; });
  const auto start = Clock::now();
  EXPECT_FALSE(loop->turn(0.1));
  EXPECT_GE(secondsSince(start), 0.1);
  EXPECT_GT(signals, 1);
}

TEST_F(EventLoopTest, RunContinuesToWaitAfterSignals) {
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
  EXPECT_FALSE(loop->turn(kPatience));
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

TEST_F(EventLoopTest, ControlsThatOutliveTheLoopRefuseToBeUsed) {
  FdProbe descriptor;
  TimerProbe timer;
  InotifyProbe path;
  loop.reset();
  EXPECT_THROW(descriptor.control->watch(0), std::logic_error);
  EXPECT_THROW(descriptor.control->fd(), std::logic_error);
  EXPECT_THROW(timer.control->start(0.0), std::logic_error);
  EXPECT_THROW(path.control->addWatch("/", 0x200), std::logic_error);
}
