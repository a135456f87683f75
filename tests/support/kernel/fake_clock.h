// SPDX-License-Identifier: MIT
#pragma once

#include "support/kernel/clock.h"

namespace Zorbe::Test::Kernel {

/// CLOCK_MONOTONIC, and the one timer descriptor of a loop, which expires by it: clock_gettime,
/// timerfd_create and timerfd_settime work on them from its construction until the faults are
/// reset. One at a time.
class FakeClock {
 public:
  FakeClock();

  static int64_t now();
  static void advance(int64_t nanoseconds);
};

}  // namespace Zorbe::Test::Kernel
