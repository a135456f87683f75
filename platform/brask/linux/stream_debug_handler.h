// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <cstdint>
#include <memory>
#include <ostream>

#pragma GCC visibility push(default)

namespace Brask::Linux {

class RateLimit;

/// Writes each message as one line: the monotonic time in seconds with six
/// decimals, the level, the text. Control characters in the text, those of UTF-8
/// included, and bytes that are not UTF-8 are escaped as in a C string: a line is
/// always one message, and no text reaches a terminal as a command. Flushes each line.
///
/// Throws nothing but std::bad_alloc, and what the client's stream is set to throw.
class StreamDebugHandler : public Platform::DebugHandler {
 public:
  /// How many messages of the levels 0 and 1 are written: `burst` at once, then
  /// `perSecond` each second. Other processes can cause such messages at any rate (a record
  /// of a wrong size is one): a program that runs for long limits them.
  struct Limit {
    unsigned burst = 200;     ///< messages at once
    unsigned perSecond = 50;  ///< further messages each second
  };

  /// Writes messages up to `maxLevel`, none with -1. The stream is the client's
  /// and outlives the handler.
  StreamDebugHandler(std::ostream& stream, int maxLevel);

  /// The same, with a limit. One line says how many messages were left out. It is written
  /// before the next message, at the latest by the destructor, and has the lowest level among
  /// those that were left out.
  StreamDebugHandler(std::ostream& stream, int maxLevel, Limit limit);
  ~StreamDebugHandler() override;

  bool isEnabled(int level) override;
  void emit(std::ostringstream& message, int level) override;

 private:
  bool admit(int level, int64_t now);
  void tellLeftOut(int64_t now);
  void write(int64_t now, int level, const std::string& text);

  std::ostream& stream_;
  int maxLevel_;
  int leftOutLevel_ = 0;
  uint64_t leftOut_ = 0;
  std::unique_ptr<RateLimit> limit_;  // null without one
};

}  // namespace Brask::Linux

#pragma GCC visibility pop
