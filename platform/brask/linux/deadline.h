// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "brask/linux/monotonic.h"

namespace Brask::Linux {

/// How long a turn may still wait. Reads the clock only where the wait has an end.
class Deadline {
 public:
  /// Negative: for ever; 0 and NaN: not at all.
  explicit Deadline(double seconds)
      : never_(seconds < 0.0), end_(seconds > 0.0 ? monotonicNow() + toNanoseconds(seconds) : 0) {}

  bool over() const { return !never_ && (end_ == 0 || monotonicNow() >= end_); }

  /// The remaining time for epoll_wait(2), rounded up; -1 for ever.
  int milliseconds() const {
    constexpr int64_t kNanoseconds = kNanosecondsPerSecond / 1000;  // in a millisecond
    if (never_) return -1;
    if (end_ == 0) return 0;
    const int64_t left = std::max<int64_t>(0, end_ - monotonicNow());
    const int64_t rounded = left / kNanoseconds + (left % kNanoseconds != 0 ? 1 : 0);
    return static_cast<int>(std::min<int64_t>(rounded, std::numeric_limits<int>::max()));
  }

 private:
  bool never_;
  int64_t end_;  // 0: no wait
};

}  // namespace Brask::Linux
