// SPDX-License-Identifier: MIT
//
// Test scenarios in a process of their own: one that may change its namespaces
// and limits, and one whose system calls are counted.
#pragma once

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <map>
#include <string>

namespace LoopTesting {

/// Runs `scenario` in a child and returns the text that it returned, or how the
/// child ended when it did not get that far.
inline std::string inChild(const std::function<std::string()>& scenario) {
  int ends[2];
  if (::pipe(ends) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    const std::string text = scenario();
    const bool written =
        ::write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::_exit(written ? 0 : 1);
  }
  ::close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t got; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<size_t>(got));
  }
  ::close(ends[0]);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || status != 0) {
    return "child ended with status " + std::to_string(status);
  }
  return text;
}

/// How often each system call was made, by its number.
using SystemCalls = std::map<uint64_t, int>;

/// Stands before and behind what systemCallsOf() is to count.
inline void mark() {
  ::syscall(SYS_getppid);
}

/// Runs `scenario` in a child and counts its system calls between two mark()s.
/// False when this process may not trace its children.
inline bool systemCallsOf(const std::function<void()>& scenario, SystemCalls& calls) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(2);
    ::raise(SIGSTOP);
    scenario();
    ::_exit(0);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return false;
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  int marks = 0;
  while (::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0) {
    if (::waitpid(child, &status, 0) != child || WIFEXITED(status) || WIFSIGNALED(status)) break;
    if (!WIFSTOPPED(status) || WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    struct __ptrace_syscall_info info {};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    if (info.entry.nr == SYS_getppid) {
      ++marks;
    } else if (marks == 1) {
      ++calls[info.entry.nr];
    }
  }
  return marks == 2;
}

}  // namespace LoopTesting
