// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Zorbe::Test::Fuzz {

/// A monotonic clock that stands still until it is told to go on, and the one timer
/// descriptor of a loop, which rings by it. In place from its construction until the faults
/// are reset.
class MadeUpClock {
 public:
  MadeUpClock();

  static int64_t now();
  static void advance(int64_t nanoseconds);
};

}  // namespace Zorbe::Test::Fuzz
