// SPDX-License-Identifier: MIT
//
// What the command-line programs have in common.
#pragma once

#include <brask/linux/event_loop.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Quotes {

/// Exit codes.
enum Exit : int { kOk = 0, kBadRows = 1, kUsage = 2, kDuplicateWriter = 3, kFailure = 4 };

/// The number in `text`. Throws std::invalid_argument, naming the option, when it is not
/// one or not within the limits.
uint64_t parseNumber(const std::string& option, const std::string& text, uint64_t least,
                     uint64_t most);

/// The value of --level: 0 to 9, or -1 for no messages at all. Throws as above.
int parseLevel(const std::string& text);

/// An option without its dashes, and what to do when it is given.
struct Argument {
  const char* name;
  bool takesValue;
  std::function<void(const std::string& value)> take;
};

/// Reads the options and returns the one NAME among them; nothing when --help is asked for.
/// Throws std::invalid_argument for a command line that makes no sense.
std::optional<std::string> parseCommandLine(int argc, char** argv,
                                            const std::vector<Argument>& arguments);

/// Returns what `run` returns, or tells on standard error what it throws.
int runProgram(const std::string& program, const std::function<int()>& run);

/// Runs the loop until it is stopped. After each exception of the library that has left it, calls
/// `recover` and goes on.
void runLoop(Brask::Linux::EventLoop& loop, const std::function<void()>& recover);

/// For its lifetime: SIGINT and SIGTERM end `loop.run()`, and so does SIGUSR1, which also
/// asks for a printout. One at a time. Afterwards they are ignored: a program that ends
/// already is not to end otherwise for a second signal.
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
