// SPDX-License-Identifier: MIT
#include "stress/step/stepped_process.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>

namespace Zorbe::Test {

SteppedProcess::SteppedProcess(const std::function<void()>& prepare,
                               const std::function<void()>& action)
    : child_(::fork()) {
  if (child_ == 0) runChild(prepare, action);
  EXPECT_GT(child_, 0);
  const int status = wait();
  EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP) << status;
  if (child_ > 0) {
    EXPECT_EQ(::ptrace(PTRACE_SETOPTIONS, child_, nullptr, PTRACE_O_EXITKILL), 0);
  }
}

SteppedProcess::~SteppedProcess() {
  kill();
}

void SteppedProcess::runChild(const std::function<void()>& prepare,
                              const std::function<void()>& action) {
  try {
    prepare();
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(2);
    ::raise(SIGSTOP);
    action();
    ::raise(SIGSTOP);
    ::_exit(0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "stepped process: %s\n", error.what());
  }
  ::_exit(1);
}

bool SteppedProcess::isPossible() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int SteppedProcess::wait() {
  int status = 0;
  pid_t waited;
  do {
    waited = ::waitpid(child_, &status, 0);
  } while (waited < 0 && errno == EINTR);
  EXPECT_EQ(waited, child_);
  if (waited != child_ || !WIFSTOPPED(status)) child_ = -1;
  return status;
}

bool SteppedProcess::step() {
  if (child_ < 0) return false;
  EXPECT_EQ(::ptrace(PTRACE_SINGLESTEP, child_, nullptr, nullptr), 0);
  const int status = wait();
  EXPECT_TRUE(WIFSTOPPED(status)) << "ended: " << status;
  if (child_ > 0 && WSTOPSIG(status) == SIGTRAP) {
    ++steps_;
    return true;
  }
  if (child_ > 0) {
    EXPECT_EQ(WSTOPSIG(status), SIGSTOP);
    finish();
  }
  return false;
}

// It has stopped itself after the action: what the files hold is what the action left.
void SteppedProcess::finish() {
  EXPECT_EQ(::ptrace(PTRACE_CONT, child_, nullptr, nullptr), 0);
  const int status = wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

void SteppedProcess::kill() {
  if (child_ < 0) return;
  EXPECT_EQ(::kill(child_, SIGKILL), 0);
  const int status = wait();
  EXPECT_TRUE(WIFSIGNALED(status)) << status;
}

}  // namespace Zorbe::Test
