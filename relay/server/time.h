// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>

namespace Zorbe::Relay {

/// Milliseconds since 1970, which hosts do not agree on exactly.
inline uint64_t wallClockMilliseconds() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

}  // namespace Zorbe::Relay
