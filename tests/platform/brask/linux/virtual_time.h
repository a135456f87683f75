// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>

#include "fault/fault.h"

namespace LoopTesting {

/// While it lives, the loop's clock shows what the test sets. It starts soon after the machine
/// did, so that the kernel's alarm, which keeps to the real clock, rings at once: this clock
/// alone decides what is due.
class VirtualTime {
 public:
  VirtualTime() {
    now_ = {1, 0};
    looks_ = 0;
    Zorbe::Test::Fault::divert("clock_gettime", tell);
  }
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;
  ~VirtualTime() { Zorbe::Test::Fault::reset(); }

  static void advanceTo(long microseconds) {
    now_ = {1 + microseconds / 1000000, microseconds % 1000000 * 1000};
  }

  /// How often the clock was read.
  static int looks() { return looks_; }

 private:
  static int tell(clockid_t /*clock*/, timespec* now) {
    ++looks_;
    *now = now_;
    return 0;
  }

  static inline timespec now_{};
  static inline int looks_ = 0;
};

}  // namespace LoopTesting
