// SPDX-License-Identifier: MIT
//
// For tests that turn the bundled loop.
#pragma once

#include "support/probes.h"
#include "support/timeout.h"

#include <brask/linux/event_loop.h>

#include <chrono>
#include <functional>

namespace Zorbe::Test {

/// Turns the loop until `done`. False when that takes too long.
inline bool turnUntil(Brask::Linux::EventLoop& loop, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    loop.turn(0.1);
  }
  return true;
}

}  // namespace Zorbe::Test
