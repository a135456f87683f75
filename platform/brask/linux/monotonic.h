// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Brask::Linux {

constexpr int64_t kNanosecondsPerSecond = 1000000000;

/// CLOCK_MONOTONIC in nanoseconds.
int64_t monotonicNow();

/// `seconds` in nanoseconds, rounded up so that nothing is early. A negative number and NaN
/// are 0. The result is limited so that it can be added to any time of the clock.
int64_t toNanoseconds(double seconds);

}  // namespace Brask::Linux
