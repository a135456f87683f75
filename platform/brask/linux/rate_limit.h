// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Brask::Linux {

/// Allows a burst at once, and after it a number each second. The unused rest of a second's
/// number is kept, up to the size of the burst.
class RateLimit {
 public:
  RateLimit(uint64_t burst, uint64_t perSecond, int64_t now)
      : burst_(burst), perSecond_(perSecond), left_(burst), countedUpTo_(now) {}

  /// Whether there is room at the time `now`, in nanoseconds.
  bool hasRoom(int64_t now);

  /// Takes one; hasRoom() has returned true.
  void take() { --left_; }

 private:
  uint64_t burst_;
  uint64_t perSecond_;
  uint64_t left_;
  int64_t countedUpTo_;  // whole seconds after the start
};

}  // namespace Brask::Linux
