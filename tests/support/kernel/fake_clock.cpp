// SPDX-License-Identifier: MIT
#include "support/kernel/fake_clock.h"

#include "fault/fault.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace Zorbe::Test::Kernel {
namespace {

Clock clock;
int timer = -1;      // an eventfd in place of the timer descriptor
int64_t expiry = 0;  // 0: not armed

int readClock(clockid_t which, timespec* now) {
  const Fault::Bypass bypass;
  if (which != CLOCK_MONOTONIC) return ::clock_gettime(which, now);
  *now = {static_cast<time_t>(clock.now() / Clock::kSecond),
          static_cast<long>(clock.now() % Clock::kSecond)};
  return 0;
}

int createTimer(clockid_t /*clock*/, int /*flags*/) {
  const Fault::Bypass bypass;
  expiry = 0;
  return timer = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

void expireWhenDue() {
  const Fault::Bypass bypass;
  const uint64_t one = 1;
  if (expiry == 0 || expiry > clock.now()) return;
  EXPECT_EQ(::write(timer, &one, sizeof one), 8);
}

int setTimer(int fd, int flags, const itimerspec* value, itimerspec* /*old*/) {
  const Fault::Bypass bypass;
  EXPECT_EQ(fd, timer);
  EXPECT_EQ(flags, TFD_TIMER_ABSTIME);
  uint64_t expirations = 0;
  if (::read(timer, &expirations, sizeof expirations) < 0) {
    EXPECT_EQ(errno, EAGAIN);
  }
  expiry = value->it_value.tv_sec * Clock::kSecond + value->it_value.tv_nsec;
  expireWhenDue();
  return 0;
}

}  // namespace

FakeClock::FakeClock() {
  clock = Clock(1000 * Clock::kSecond);
  Fault::divert("clock_gettime", readClock, "timerfd_create", createTimer, "timerfd_settime",
                setTimer);
}

int64_t FakeClock::now() {
  return clock.now();
}

void FakeClock::advance(int64_t nanoseconds) {
  clock.advance(nanoseconds);
  expireWhenDue();
}

}  // namespace Zorbe::Test::Kernel
