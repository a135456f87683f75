// SPDX-License-Identifier: MIT
#include "brask/linux/monotonic.h"

#include <time.h>

#include <limits>

namespace Brask::Linux {

int64_t monotonicNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));  // every Linux has this clock
  return int64_t{now.tv_sec} * kNanosecondsPerSecond + now.tv_nsec;
}

int64_t toNanoseconds(double seconds) {
  constexpr int64_t kLongest = std::numeric_limits<int64_t>::max() / 2;  // 146 years
  if (!(seconds > 0.0)) return 0;
  // Volatile: rounded to a double also where the processor computes with more digits.
  const volatile double product = seconds * static_cast<double>(kNanosecondsPerSecond);
  const double nanoseconds = product;
  if (nanoseconds >= static_cast<double>(kLongest)) return kLongest;
  const auto whole = static_cast<int64_t>(nanoseconds);
  return static_cast<double>(whole) < nanoseconds ? whole + 1 : whole;
}

}  // namespace Brask::Linux
