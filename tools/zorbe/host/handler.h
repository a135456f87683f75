// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <string>
#include <vector>

namespace Zorbe::Tool {

/// Collects the failures that the library logs, for the command to examine, and prints messages
/// up to the level that the user asked for on standard error.
class Handler : public Brask::Platform::DebugHandler {
 public:
  /// -1 prints nothing.
  explicit Handler(int maxLevel) : maxLevel_(maxLevel) {}

  bool isEnabled(int level) override { return level == 0 || level <= maxLevel_; }
  void emit(std::ostringstream& message, int level) override;

  int maxLevel() const { return maxLevel_; }

  /// The failures since the last call.
  std::vector<std::string> takeFailures();

 private:
  int maxLevel_;
  std::vector<std::string> failures_;
};

}  // namespace Zorbe::Tool
