// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>

#include "fault/fault.h"
#include "support/noncopyable.h"

namespace LoopTesting {

/// While it lives, the loop's clock shows what the test sets. It starts soon after the machine
/// did: every expiry is in the past of the kernel's timerfd, which then is readable at once, so
/// that this clock alone decides what is due.
class VirtualTime : private Zorbe::Test::NonCopyable {
 public:
  VirtualTime() {
    now_ = {1, 0};
    reads_ = 0;
    microsecondsPerRead_ = 0;
    Zorbe::Test::Fault::divert("clock_gettime", readClock);
  }
  ~VirtualTime() { Zorbe::Test::Fault::reset(); }

  static void advanceTo(long microseconds) {
    now_ = {1 + microseconds / 1000000, microseconds % 1000000 * 1000};
  }

  /// From now on the clock advances by so much after each time it is read.
  static void passEachRead(long microseconds) { microsecondsPerRead_ = microseconds; }

  static void advance(long microseconds) {
    const long sum = now_.tv_nsec / 1000 + microseconds;
    now_ = {now_.tv_sec + sum / 1000000, sum % 1000000 * 1000};
  }

  /// How often the clock was read.
  static int reads() { return reads_; }

 private:
  static int readClock(clockid_t /*clock*/, timespec* now) {
    ++reads_;
    *now = now_;
    advance(microsecondsPerRead_);
    return 0;
  }

  static inline timespec now_{};
  static inline int reads_ = 0;
  static inline long microsecondsPerRead_ = 0;
};

}  // namespace LoopTesting
