// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "descriptor.h"

namespace Demo {

/// A program started as a child process, its output readable line by line. The destructor
/// kills and awaits a child that still runs: nothing is left behind.
///
/// Errors of the system are thrown as std::system_error, a missed deadline as
/// std::runtime_error that says what was waited for.
class Child {
 public:
  /// Starts `arguments[0]` with its standard input from `input` (a file's path).
  explicit Child(const std::vector<std::string>& arguments, const std::string& input = "/dev/null");

  Child(Child&& other) noexcept;
  Child& operator=(Child&& other) noexcept;
  ~Child();

  pid_t pid() const { return pid_; }

  /// The next line of standard output that begins with `prefix`; others are skipped.
  std::string awaitLine(const std::string& prefix, double seconds = 30);

  /// Sends a signal to this process alone.
  void signal(int number);

  /// Awaits its end; `pid()` is -1 afterwards. Returns the exit code, or 128 and the signal that
  /// ended it.
  int awaitEnd(double seconds = 30);

  /// True when it ends within that time.
  bool endsWithin(double seconds);

  /// Everything it has written to standard error; complete after `awaitEnd`.
  std::string errors();

 private:
  Child() = default;
  bool readOutput(double untilSeconds);

  pid_t pid_ = -1;
  Descriptor end_;  // becomes readable when the process has ended
  Descriptor output_;
  Descriptor errors_;
  std::string pending_;
};

/// The value of `key` in a line of "key=value" words. Throws std::runtime_error when the
/// line does not have it.
std::string field(const std::string& line, const std::string& key);

/// The path of a program that lies beside the running one.
std::string sibling(const std::string& name);

}  // namespace Demo
