// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <ostream>

#pragma GCC visibility push(default)

namespace Brask::Linux {

/// Writes each message as one line: the monotonic time in seconds with six
/// decimals, the level, the text. A line break within the text is written as the
/// two characters \n, so that a line is always a message. Flushes after each.
class StreamDebugHandler : public Platform::DebugHandler {
 public:
  /// Writes messages up to `maxLevel`, none with -1. The stream is the client's
  /// and outlives the handler.
  StreamDebugHandler(std::ostream& stream, int maxLevel);
  ~StreamDebugHandler() override;

  bool isEnabled(int level) override;
  void emit(std::ostringstream& message, int level) override;

 private:
  std::ostream& stream_;
  int maxLevel_;
};

}  // namespace Brask::Linux

#pragma GCC visibility pop
