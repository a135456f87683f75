// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>

namespace Zorbe::Tool {

/// When processes were started. Reads the time of the boot once, and each process once.
class StartTimes {
 public:
  /// Seconds since 1970; none when the process does not exist, or /proc cannot be read.
  std::optional<double> of(pid_t pid);

 private:
  std::map<pid_t, std::optional<double>> known_;
  std::optional<double> boot_;
};

}  // namespace Zorbe::Tool
