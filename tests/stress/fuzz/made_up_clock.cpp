// SPDX-License-Identifier: MIT
#include "stress/fuzz/made_up_clock.h"

#include "fault/fault.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <ctime>

namespace Zorbe::Test::Fuzz {
namespace {

constexpr int64_t second = 1000000000;
int64_t time = 0;
int bell = -1;       // stands for the timer descriptor
int64_t expiry = 0;  // 0: not set

int tell(clockid_t clock, timespec* now) {
  const Fault::Bypass bypass;
  if (clock != CLOCK_MONOTONIC) return ::clock_gettime(clock, now);
  *now = {static_cast<time_t>(time / second), static_cast<long>(time % second)};
  return 0;
}

int create(clockid_t /*clock*/, int /*flags*/) {
  const Fault::Bypass bypass;
  expiry = 0;
  return bell = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

void ringWhenDue() {
  const Fault::Bypass bypass;
  const uint64_t one = 1;
  if (expiry != 0 && expiry <= time) EXPECT_EQ(::write(bell, &one, sizeof one), 8);
}

int set(int fd, int flags, const itimerspec* value, itimerspec* /*old*/) {
  const Fault::Bypass bypass;
  EXPECT_EQ(fd, bell);
  EXPECT_EQ(flags, TFD_TIMER_ABSTIME);
  uint64_t rings = 0;
  if (::read(bell, &rings, sizeof rings) < 0) EXPECT_EQ(errno, EAGAIN);
  expiry = value->it_value.tv_sec * second + value->it_value.tv_nsec;
  ringWhenDue();
  return 0;
}

}  // namespace

MadeUpClock::MadeUpClock() {
  time = 1000 * second;
  Fault::divert("clock_gettime", tell);
  Fault::divert("timerfd_create", create);
  Fault::divert("timerfd_settime", set);
}

int64_t MadeUpClock::now() {
  return time;
}

void MadeUpClock::advance(int64_t nanoseconds) {
  time += nanoseconds;
  ringWhenDue();
}

}  // namespace Zorbe::Test::Fuzz
