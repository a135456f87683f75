// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// Stops child processes at their instructions and system calls: see ptrace(2).
namespace Tracer {

struct Stop {
  pid_t child;
  int status;  ///< as waitpid(2) returns it
};

/// Stops `child`, which is traced from here on, and killed when this process ends. False, and
/// errno, when that is not allowed.
bool attach(pid_t child);

/// Lets it run until it stops for `request`, a constant of ptrace(2), or for a signal.
void resume(pid_t child, int request, int signal = 0);

/// Waits until `child` stops or ends; any child, when it is -1.
Stop wait(pid_t child);

}  // namespace Tracer

/// Records every system call of child processes, also those that no function of the C library
/// makes.
class SystemCallTrace {
 public:
  /// Begins and ends the recording of the calling process.
  static void mark();

  /// Stops `child` and begins to trace it. False, and errno, when that is not allowed.
  bool watch(pid_t child);

  /// Continues the children until each has made both marks, or ended; then detaches from them.
  void run();

  /// The calls that it made between its marks, by the names of the manual.
  const std::vector<std::string>& calls(pid_t child) const { return watched_.at(child).calls; }

  /// It made both marks.
  bool complete(pid_t child) const { return watched_.at(child).marks == 2; }

 private:
  struct Watched {
    std::vector<std::string> calls;
    unsigned marks = 0;
  };

  bool record(pid_t child);

  std::map<pid_t, Watched> watched_;
};

}  // namespace Zorbe::Test
