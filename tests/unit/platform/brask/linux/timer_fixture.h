// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "unit/platform/brask/linux/loop_fixture.h"

namespace LoopTesting {

// Timers that note their letters, beside a clock that no test sleeps for.
class TimerTest : public LoopTest {
 protected:
  // A timer that notes its letter when it expires.
  std::unique_ptr<TimerProbe> letter(char name) {
    return std::make_unique<TimerProbe>([this, name] { order += name; });
  }

  /// All of them, one after the other.
  template <class... Timers>
  static void start(double seconds, const Timers&... timers) {
    (timers->control->start(seconds), ...);
  }
  static void letPass(double seconds) {
    const auto start = Clock::now();
    while (secondsSince(start) < seconds) {
    }
  }

  std::string order;
};

}  // namespace LoopTesting
