// SPDX-License-Identifier: MIT
//
// What the tests of the conformance suite share.
#pragma once

#include "conformance/loop.h"
#include "support/probes.h"
#include "support/watched.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>

namespace Zorbe::Conformance {

using Test::Directory;
using Test::FdProbe;
using Test::InotifyProbe;
using Test::Pair;
using Test::TimerProbe;
using Test::touch;

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// How long a test waits for what has to happen: only a fault reaches it. The environment
/// variable ZORBE_CONFORMANCE_PATIENCE changes it, in seconds.
inline double patience() {
  const char* const given = std::getenv("ZORBE_CONFORMANCE_PATIENCE");
  const double seconds = given != nullptr ? std::atof(given) : 0.0;
  return seconds > 0.0 ? seconds : 20.0;
}

/// A test with a loop.
class LoopConformance : public ::testing::Test {
 protected:
  /// Turns until `done`. False when that takes too long.
  bool turnUntil(const std::function<bool()>& done) const {
    const auto start = Clock::now();
    while (!done()) {
      if (secondsSince(start) > patience()) return false;
      loop_->turn(0.1);
    }
    return true;
  }

  /// Turns until everything that is ready has been reported, several times where it stays ready.
  /// A turn may make one callback only.
  void settle() const {
    for (int turns = 0; turns < 50; ++turns) loop_->turn(0.0);
  }

  /// One turn that does not wait.
  void turn() const { loop_->turn(0.0); }

 private:
  std::unique_ptr<Loop> loop_ = makeLoop();
};

}  // namespace Zorbe::Conformance
