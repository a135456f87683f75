// SPDX-License-Identifier: MIT
//
// Instructions in user space, counted one by one in a traced child.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <optional>

namespace LoopTesting {

/// Calls what it is given; what that executes is counted.
using Counted = std::function<void(const std::function<void()>&)>;

/// Runs `scenario` in a child and returns how many instructions it executed inside of the
/// function that it is handed; nothing when this process may not trace its children. The child has
/// to end with 0.
inline std::optional<long> stepsOf(const std::function<void(const Counted&)>& scenario) {
  constexpr int kUntraceable = 99;
  void* const shared =
      ::mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return std::nullopt;
  volatile int& counting = *static_cast<volatile int*>(shared);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(kUntraceable);
    scenario([&counting](const std::function<void()>& work) {
      counting = 1;
      ::raise(SIGSTOP);
      work();
      counting = 0;
    });
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  long steps = 0;
  int status = kUntraceable << 8;
  while (child > 0 && ::waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
    const bool ours = WSTOPSIG(status) == SIGSTOP || WSTOPSIG(status) == SIGTRAP;
    const long signal = ours ? 0 : WSTOPSIG(status);
    // So that it ends with this process; refused for none that is stopped.
    if (steps == 0) ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL);
    if (counting != 0) ++steps;
    const auto how = counting != 0 ? PTRACE_SINGLESTEP : PTRACE_CONT;
    if (::ptrace(how, child, nullptr, signal) != 0) break;
  }
  ::munmap(shared, sizeof(int));
  if (WIFEXITED(status) && WEXITSTATUS(status) == kUntraceable) return std::nullopt;
  EXPECT_EQ(0, status) << "of the traced child";
  return steps;
}

}  // namespace LoopTesting
