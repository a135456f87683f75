// SPDX-License-Identifier: MIT
#pragma once

#include "support/child_process.h"

#include <cstddef>

namespace Zorbe::Test {

/// A child process that runs one instruction at a time.
class SteppedProcess {
 public:
  /// The child runs `prepare` at full speed and stops. Then it runs `action` as it is stepped,
  /// and exits.
  SteppedProcess(const std::function<void()>& prepare, const std::function<void()>& action);

  /// False where a process may not trace its children.
  static bool isPossible();

  /// One instruction. False when the action is over; the child then has exited, with 0.
  bool step();

  void kill();

 private:
  ChildProcess child_;
  bool ended_ = false;
};

}  // namespace Zorbe::Test
