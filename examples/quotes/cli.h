// SPDX-License-Identifier: MIT
//
// What the command-line programs have in common.
#pragma once

#include <brask/linux/event_loop.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace Quotes {

/// Exit codes.
enum Exit : int { kOk = 0, kBadRows = 1, kUsage = 2, kDuplicateWriter = 3, kFailure = 4 };

/// The number in `text`. Throws std::invalid_argument, naming the option, when it is not
/// one or not within the limits.
uint64_t parseNumber(const std::string& option, const std::string& text, uint64_t least,
                     uint64_t most);

/// For its lifetime: SIGINT and SIGTERM end `loop.run()`, and so does SIGUSR1, which also
/// asks for a printout. One at a time.
class Signals {
 public:
  explicit Signals(Brask::Linux::EventLoop& loop);
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  ~Signals();

  /// True once after each SIGUSR1.
  bool takePrintRequest();

  /// True after SIGINT or SIGTERM.
  bool ended() const;
};

}  // namespace Quotes
