// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>

namespace Zorbe::Test {

/// A child process that runs one instruction at a time (see ptrace(2)).
class SteppedProcess {
 public:
  /// Forks. The child does `prepare` as fast as it can and stops; then it goes on with `action`
  /// as it is stepped, and exits. Neither may use the assertions of the tests: an exception is
  /// printed and ends the child with 1.
  SteppedProcess(const std::function<void()>& prepare, const std::function<void()>& action);
  SteppedProcess(const SteppedProcess&) = delete;
  SteppedProcess& operator=(const SteppedProcess&) = delete;
  /// Kills it, unless it has ended.
  ~SteppedProcess();

  /// False where a process may not trace its children; no child exists then.
  static bool isPossible();

  /// One instruction. False when the action is over; the child then has exited, with 0.
  bool step();

  void kill();

  size_t steps() const { return steps_; }

 private:
  [[noreturn]] static void runChild(const std::function<void()>& prepare,
                                    const std::function<void()>& action);
  int wait();
  void finish();

  pid_t child_;
  size_t steps_ = 0;
};

}  // namespace Zorbe::Test
