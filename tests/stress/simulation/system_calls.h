// SPDX-License-Identifier: MIT
//
// Diverts the system calls of simulated processes to their world. All others reach the C
// library: those of the tests, and those on real descriptors.
#pragma once

#include <cerrno>

#include "stress/simulation/process.h"

namespace Zorbe::Test::Simulation {

void divertSocketCalls();

/// Those on files, and what tells a process about itself. Returns what open(2) is diverted to.
int (*divertFileCalls())(const char*, int, mode_t);

/// The return value of a call that ends with this errno, or with 0. Sets errno.
inline int result(int error) {
  if (error == 0) return 0;
  errno = error;
  return -1;
}

/// Begins every system call of the running process: other processes may run now, and may kill
/// it. A call of a dead process fails and changes nothing.
inline bool enter(Process& process) {
  process.pause();
  if (!process.isDead()) return true;
  errno = EIO;
  return false;
}

}  // namespace Zorbe::Test::Simulation
