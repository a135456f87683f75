// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Brask::Linux {

constexpr int64_t NANOSECONDS = 1000000000;

/// CLOCK_MONOTONIC in nanoseconds.
int64_t monotonicNow();

/// `seconds` in nanoseconds, rounded up so that nothing is early. What is
/// negative or not a number is 0; what is too long to matter stays addable to
/// any time of the clock.
int64_t toNanoseconds(double seconds);

}  // namespace Brask::Linux
