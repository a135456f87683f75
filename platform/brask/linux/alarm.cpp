// SPDX-License-Identifier: MIT
#include "brask/linux/alarm.h"

#include <sys/timerfd.h>

#include <cerrno>

#include "brask/linux/monotonic.h"

namespace Brask::Linux {

Alarm::Alarm()
    : fd_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC),
          "EventLoop timerfd_create()") {}

[[gnu::hot]] void Alarm::ringBy(int64_t expiry) {
  if (expiry == 0 && !rang_) return;
  if (expiry != 0 && expiry_ != 0 && expiry_ <= expiry && !rang_) return;
  set(expiry);
}

void Alarm::ringAt(int64_t expiry) {
  if (expiry != expiry_) set(expiry);
}

void Alarm::ringNow() {
  constexpr int64_t longAgo = 1;
  if (rang_ || expiry_ == longAgo) return;
  set(longAgo);
}

void Alarm::set(int64_t expiry) {
  itimerspec when{};
  when.it_value.tv_sec = static_cast<time_t>(expiry / NANOSECONDS);
  when.it_value.tv_nsec = static_cast<long>(expiry % NANOSECONDS);
  if (::timerfd_settime(fd_.get(), TFD_TIMER_ABSTIME, &when, nullptr) != 0) {
    throwSystemError(errno, "EventLoop timerfd_settime()");
  }
  expiry_ = expiry;
  rang_ = false;
}

}  // namespace Brask::Linux
