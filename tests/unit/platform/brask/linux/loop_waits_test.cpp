// SPDX-License-Identifier: MIT
//
// For how long a turn asks the kernel to wait, and when it reads the clock.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <limits>
#include <memory>
#include <system_error>
#include <vector>

#include "unit/platform/brask/linux/loop_fixture.h"
#include "unit/platform/brask/linux/virtual_time.h"

using namespace LoopTesting;

namespace {

// Notes what the loop asks the kernel for. No wait takes any real time.
class LoopWaitsTest : public LoopTest {
 protected:
  LoopWaitsTest() {
    waits_.clear();
    settings_.clear();
    waitsPass_ = false;
    Fault::divert("epoll_wait", noteWait);
    Fault::divert("timerfd_settime", noteSetting);
  }

  // How the turn's first wait is asked for.
  int waitOf(double seconds) {
    waits_.clear();
    FdProbe ready;
    const int fd = ::eventfd(1, EFD_CLOEXEC);
    ready.control->watch(fd);
    EXPECT_TRUE(loop->turn(seconds));
    ready.control->unwatch();
    ::close(fd);
    EXPECT_EQ(1u, waits_.size());
    return waits_.front();
  }

  static int noteWait(int fd, epoll_event* events, int capacity, int milliseconds) {
    waits_.push_back(milliseconds);
    if (waitsPass_) VirtualTime::advance(1000L * milliseconds);
    const Fault::Bypass bypass;
    return ::epoll_wait(fd, events, capacity, 0);
  }

  static int noteSetting(int fd, int flags, const itimerspec* value, itimerspec* old) {
    EXPECT_EQ(TFD_TIMER_ABSTIME, flags);
    settings_.push_back(value->it_value);
    EXPECT_EQ(0, value->it_interval.tv_sec);
    EXPECT_EQ(0, value->it_interval.tv_nsec);
    const Fault::Bypass bypass;
    return ::timerfd_settime(fd, flags, value, old);
  }

  static void expectTimerfd(time_t seconds, long nanoseconds) {
    ASSERT_FALSE(settings_.empty());
    EXPECT_EQ(seconds, settings_.back().tv_sec);
    EXPECT_EQ(nanoseconds, settings_.back().tv_nsec);
  }

  VirtualTime time_;
  static inline std::vector<int> waits_;
  static inline bool waitsPass_ = false;  // a wait takes the time that it was asked for
  static inline std::vector<timespec> settings_;
};

}  // namespace

TEST_F(LoopWaitsTest, AWaitIsRoundedUpToMilliseconds) {
  EXPECT_EQ(1, waitOf(1e-9));
  EXPECT_EQ(1, waitOf(0.001));
  EXPECT_EQ(2, waitOf(0.001000001));
  EXPECT_EQ(1500, waitOf(1.5));
}

TEST_F(LoopWaitsTest, NoTimeIsNoWaitAndANegativeOneIsForEver) {
  EXPECT_EQ(0, waitOf(0.0));
  EXPECT_EQ(0, waitOf(-0.0));
  EXPECT_EQ(0, waitOf(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_EQ(-1, waitOf(-1e-9));
  EXPECT_EQ(-1, waitOf(-std::numeric_limits<double>::infinity()));
}

TEST_F(LoopWaitsTest, AWaitThatTheKernelCannotTakeIsTheLongestThatItCan) {
  constexpr int longest = std::numeric_limits<int>::max();
  EXPECT_EQ(longest, waitOf(2147483.647));
  for (const double seconds : {2147483.648, 2147484.0, 4294967.296, 4294967.297, 1e10, 1e300}) {
    EXPECT_EQ(longest, waitOf(seconds)) << seconds;
  }
}

TEST_F(LoopWaitsTest, WithATimerThatIsDueTheLoopDoesNotWait) {
  TimerProbe timer;
  timer.control->start(0.0);
  EXPECT_TRUE(loop->turn(-1));
  EXPECT_EQ(std::vector<int>{0}, waits_);
}

TEST_F(LoopWaitsTest, ARunWaitsForEverAndATurnThatIsToStopNotAtAll) {
  Pair pair;
  FdProbe probe([this](int) { loop->stop(); });
  probe.control->watch(pair.here);
  pair.makeReady();
  loop->run();
  EXPECT_EQ(std::vector<int>{-1}, waits_);
  pair.drain();
  loop->stop();
  EXPECT_FALSE(loop->turn(-1));
  EXPECT_EQ((std::vector<int>{-1, 0}), waits_);
}

TEST_F(LoopWaitsTest, TheTimerfdIsSetToTheEarliestExpiryInNanoseconds) {
  TimerProbe later, earlier;
  later.control->start(2.75);
  loop->turn(0);
  expectTimerfd(3, 750000000);
  earlier.control->start(0.123456789);
  loop->turn(0);
  expectTimerfd(1, 123456789);
  earlier.control->start(1.5e-9);
  loop->turn(0);
  expectTimerfd(1, 2);
}

TEST_F(LoopWaitsTest, TheTimerfdOfALoopThatIsPolledFromOutsideFollowsTheEarliestTimerAtOnce) {
  static_cast<void>(loop->fd());
  TimerProbe first, second;
  first.control->start(2.0);
  expectTimerfd(3, 0);
  second.control->start(1.0);
  expectTimerfd(2, 0);
  second.control->cancel();
  expectTimerfd(3, 0);
  first.control->start(0.0);
  expectTimerfd(0, 1);  // long ago
  first.control->cancel();
  expectTimerfd(0, 0);
  EXPECT_EQ(5u, settings_.size());
}

TEST_F(LoopWaitsTest, ATimerfdThatExpiredForADeletedTimerIsDisarmed) {
  auto timer = std::make_unique<TimerProbe>();
  timer->control->start(0.001);
  loop->turn(0);
  timer.reset();
  loop->turn(0);
  expectTimerfd(0, 0);
  const size_t settings = settings_.size();
  loop->turn(0);
  EXPECT_EQ(settings, settings_.size());
}

TEST_F(LoopWaitsTest, TheClockIsNotReadForZeroTimersAlone) {
  TimerProbe timer;
  for (int each = 0; each < 10; ++each) {
    timer.control->start(0.0);
    EXPECT_TRUE(loop->turn(0));
  }
  EXPECT_EQ(0, VirtualTime::reads());
}

TEST_F(LoopWaitsTest, TheClockIsNotReadBeforeTheTimerfdExpires) {
  Fault::divert(
      "timerfd_settime", +[](int, int, const itimerspec*, itimerspec*) { return 0; });
  TimerProbe timer;
  timer.control->start(0.5);
  const int reads = VirtualTime::reads();
  for (int each = 0; each < 10; ++each) EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(reads, VirtualTime::reads());
}

TEST_F(LoopWaitsTest, ATurnEndsWithTheWaitThatReachesItsEnd) {
  waitsPass_ = true;
  EXPECT_FALSE(loop->turn(0.002));
  EXPECT_EQ(std::vector<int>{2}, waits_);
}

TEST_F(LoopWaitsTest, ATurnWhoseTimeIsOverBeforeItWaitsDoesNotWait) {
  VirtualTime::passEachRead(1000);
  EXPECT_FALSE(loop->turn(0.000001));
  EXPECT_EQ(std::vector<int>{0}, waits_);
}

TEST_F(LoopWaitsTest, ALoopWithoutTimersLeavesItsTimerfdAlone) {
  EXPECT_FALSE(loop->turn(0));
  TimerProbe immediate;
  immediate.control->start(0.0);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(0u, settings_.size());
}

TEST_F(LoopWaitsTest, AnExpiryThatWasReportedBehindADescriptorIsNotSeenTwice) {
  Pair pair;
  FdProbe busy;
  TimerProbe timer;
  busy.control->watch(pair.here);
  pair.makeReady();
  timer.control->start(0.001);
  loop->turn(0);
  VirtualTime::advance(1000);
  EXPECT_TRUE(turnUntil([&] { return timer.timeouts == 1; }));
  loop->turn(0);
  const size_t settings = settings_.size();
  const int reads = VirtualTime::reads();
  for (int each = 0; each < 5; ++each) EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(settings, settings_.size());
  EXPECT_EQ(reads, VirtualTime::reads());
}

TEST_F(LoopWaitsTest, AZeroTimerThatIsStartedAgainSetsTheTimerfdOnce) {
  static_cast<void>(loop->fd());
  TimerProbe timers[3];
  for (TimerProbe& timer : timers) timer.control->start(0.0);
  EXPECT_EQ(1u, settings_.size());
}

TEST_F(LoopWaitsTest, ATimerfdThatCannotBeSetIsAnErrorOfTheTurn) {
  TimerProbe timer;
  timer.control->start(0.001);
  Fault::arm("timerfd_settime", 1, ENOMEM);
  EXPECT_EQ("EventLoop timerfd_settime(): Cannot allocate memory",
            textOf<std::system_error>([this] { loop->turn(0); }));
  EXPECT_FALSE(loop->turn(0));
  VirtualTime::advance(1000);
  EXPECT_TRUE(loop->turn(0));
}
