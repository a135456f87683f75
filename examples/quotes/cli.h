// SPDX-License-Identifier: MIT
//
// What the command-line programs have in common.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Quotes {

enum Exit : int { kOk = 0, kBadRows = 1, kUsage = 2, kDuplicateWriter = 3, kFailure = 4 };

/// The number in `text`. Throws std::invalid_argument, naming the option, when it is not
/// one or not within the limits.
uint64_t parseNumber(const std::string& option, const std::string& text, uint64_t least,
                     uint64_t most);

/// The value of --level: 0 to 9, or -1 for no messages at all. Throws as above.
inline int parseLevel(const std::string& text) {
  return text == "-1" ? -1 : static_cast<int>(parseNumber("--level", text, 0, 9));
}

/// An option without its dashes, and what to do when it is given.
struct Argument {
  const char* name;
  bool takesValue;
  std::function<void(const std::string& value)> take;
};

/// Reads the options and returns what `run` returns for the one NAME among them. Prints `usage`
/// when --help is asked for, and on standard error what is thrown: std::invalid_argument for a
/// command line that makes no sense.
int runProgram(int argc, char** argv, const char* usage, const std::vector<Argument>& arguments,
               const std::function<int(const std::string& name)>& run);

/// For its lifetime SIGINT, SIGTERM and SIGUSR1 do not interrupt the program: they make a
/// descriptor readable. To be made before there is a second thread.
class Signals {
 public:
  Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  ~Signals();

  int fd() const { return fd_; }

  /// The next one, waited for at most that long; 0 when there is none.
  int take(int milliseconds) const;

 private:
  int fd_ = -1;
};

}  // namespace Quotes
