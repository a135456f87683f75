// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// Records every system call of child processes, also those that no function of the C library
/// makes: see ptrace(2).
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
