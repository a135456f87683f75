// SPDX-License-Identifier: MIT
#pragma once

#include <time.h>

#include <cstdint>

namespace Zorbe::Table {

/// What one of the kernel's clocks shows, in nanoseconds.
inline uint64_t nanosecondsOf(clockid_t clock) {
  constexpr uint64_t kPerSecond = 1'000'000'000;
  timespec now{};
  static_cast<void>(::clock_gettime(clock, &now));  // fails for no clock that there is
  return static_cast<uint64_t>(now.tv_sec) * kPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace Zorbe::Table
