// SPDX-License-Identifier: MIT
#include "brask/linux/monotonic.h"

#include <time.h>

#include <limits>

namespace Brask::Linux {

int64_t monotonicNow() {
  timespec now{};
  static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &now));  // every Linux has this clock
  return int64_t{now.tv_sec} * NANOSECONDS + now.tv_nsec;
}

int64_t toNanoseconds(double seconds) {
  constexpr int64_t longest = std::numeric_limits<int64_t>::max() / 2;  // 146 years
  if (!(seconds > 0.0)) return 0;
  // Volatile: a processor that computes with more digits than a double has rounds it like others.
  const volatile double product = seconds * static_cast<double>(NANOSECONDS);
  const double nanoseconds = product;
  if (nanoseconds >= static_cast<double>(longest)) return longest;
  const auto whole = static_cast<int64_t>(nanoseconds);
  return static_cast<double>(whole) < nanoseconds ? whole + 1 : whole;
}

}  // namespace Brask::Linux
