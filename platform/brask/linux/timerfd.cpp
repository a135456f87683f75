// SPDX-License-Identifier: MIT
#include "brask/linux/timerfd.h"

#include <sys/timerfd.h>

#include <cerrno>

#include "brask/linux/monotonic.h"

namespace Brask::Linux {

Timerfd::Timerfd()
    : fd_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC),
          "EventLoop timerfd_create()") {}

[[gnu::hot]] void Timerfd::armNoLaterThan(int64_t expiry) {
  if (expiry == 0 && !expired_) return;
  if (expiry != 0 && expiry_ != 0 && expiry_ <= expiry && !expired_) return;
  set(expiry);
}

void Timerfd::armAt(int64_t expiry) {
  if (expiry != expiry_) set(expiry);
}

void Timerfd::expireNow() {
  constexpr int64_t kLongAgo = 1;
  if (expired_ || expiry_ == kLongAgo) return;
  set(kLongAgo);
}

void Timerfd::set(int64_t expiry) {
  itimerspec when{};
  when.it_value.tv_sec = static_cast<time_t>(expiry / kNanosecondsPerSecond);
  when.it_value.tv_nsec = static_cast<long>(expiry % kNanosecondsPerSecond);
  if (::timerfd_settime(fd_.get(), TFD_TIMER_ABSTIME, &when, nullptr) != 0) {
    throwSystemError(errno, "EventLoop timerfd_settime()");
  }
  expiry_ = expiry;
  expired_ = false;
}

}  // namespace Brask::Linux
