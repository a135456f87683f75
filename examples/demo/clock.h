// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>

namespace Demo {

/// CLOCK_MONOTONIC: the same clock in every process of a host.
inline uint64_t monotonicNanoseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::nanoseconds(now).count());
}

}  // namespace Demo
