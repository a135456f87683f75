// SPDX-License-Identifier: MIT
//
// From here on the system calls of simulated processes are answered by their world. All
// others go on to the C library: those of the tests, and those on real descriptors.
#pragma once

#include <cerrno>

#include "stress/simulation/process.h"

namespace Zorbe::Test::Simulation {

void divertSocketCalls();
void divertFileCalls();  ///< and what tells a process about itself

/// What a call returns that ends with this errno, or with 0.
inline int result(int error) {
  if (error == 0) return 0;
  errno = error;
  return -1;
}

/// The beginning of every call of the process that runs: others may run now, and may end
/// the process. What a dead process calls fails and changes nothing.
inline bool enter(Process& process) {
  process.pause();
  if (!process.isDead()) return true;
  errno = EIO;
  return false;
}

}  // namespace Zorbe::Test::Simulation
