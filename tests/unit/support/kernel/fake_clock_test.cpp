// SPDX-License-Identifier: MIT
//
// The timer descriptor of FakeClock against the kernel's: it is readable after the same steps.
#include "support/kernel/fake_clock.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <ctime>
#include <vector>

#include "fault/fault.h"
#include "support/descriptor.h"

namespace Zorbe::Test::Kernel {
namespace {

constexpr int64_t kLong = 1000 * Clock::kSecond;

int64_t now() {
  timespec time = {};
  EXPECT_EQ(::clock_gettime(CLOCK_MONOTONIC, &time), 0);
  return time.tv_sec * Clock::kSecond + time.tv_nsec;
}

class Timer {
 public:
  void set(int64_t expiry) {
    itimerspec value = {};
    value.it_value = {static_cast<time_t>(expiry / Clock::kSecond),
                      static_cast<long>(expiry % Clock::kSecond)};
    EXPECT_EQ(::timerfd_settime(fd_.get(), TFD_TIMER_ABSTIME, &value, nullptr), 0);
  }

  bool isReadable() const {
    pollfd entry = {fd_.get(), POLLIN, 0};
    EXPECT_GE(::poll(&entry, 1, 0), 0);
    return entry.revents != 0;
  }

 private:
  Descriptor fd_{::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)};
};

// Whether the timer is readable after each step.
std::vector<bool> outcome() {
  Timer timer;
  std::vector<bool> readable = {timer.isReadable()};
  for (const int64_t expiry : {now() - 1, int64_t{0}, now(), now() + kLong, int64_t{1}}) {
    timer.set(expiry);
    readable.push_back(timer.isReadable());
  }
  return readable;
}

class FakeClockTest : public testing::Test {
 protected:
  ~FakeClockTest() override { Fault::reset(); }
};

TEST_F(FakeClockTest, ATimerIsReadableWhenThatOfTheKernelIs) {
  const std::vector<bool> expected = outcome();
  const FakeClock clock;
  EXPECT_EQ(outcome(), expected);
}

TEST_F(FakeClockTest, StandsStillAndExpiresTheTimerWhenItAdvances) {
  const FakeClock clock;
  const int64_t start = now();
  EXPECT_EQ(now(), start);
  Timer timer;
  timer.set(start + 10);
  FakeClock::advance(9);
  EXPECT_FALSE(timer.isReadable());
  FakeClock::advance(1);
  EXPECT_TRUE(timer.isReadable());
  EXPECT_EQ(now(), start + 10);
}

}  // namespace
}  // namespace Zorbe::Test::Kernel
