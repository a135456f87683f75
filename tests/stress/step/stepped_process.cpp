// SPDX-License-Identifier: MIT
#include "stress/step/stepped_process.h"

#include "support/tracer.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>

namespace Zorbe::Test {

SteppedProcess::SteppedProcess(const std::function<void()>& prepare,
                               const std::function<void()>& action)
    : child_("stepped", [&](Channel& parent) {
        prepare();
        parent.send("prepared");
        parent.await("step");
        ::raise(SIGSTOP);
        action();
        ::raise(SIGSTOP);
      }) {
  child_.await("prepared");
  EXPECT_TRUE(Tracer::attach(child_.pid()));
  Tracer::resume(child_.pid(), PTRACE_CONT);
  child_.send("step");
  EXPECT_EQ(WSTOPSIG(Tracer::wait(child_.pid()).status), SIGSTOP);
}

bool SteppedProcess::isPossible() {
  const ChildProcess child("traced", [](Channel& parent) { parent.receive(); });
  return Tracer::attach(child.pid());
}

bool SteppedProcess::step() {
  if (ended_) return false;
  Tracer::resume(child_.pid(), PTRACE_SINGLESTEP);
  const int status = Tracer::wait(child_.pid()).status;
  if (WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP) return true;
  // It has stopped itself after the action: the files hold what the action left.
  EXPECT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP) << "ended: " << status;
  Tracer::resume(child_.pid(), PTRACE_CONT);
  EXPECT_EQ(child_.finish(), 0);
  ended_ = true;
  return false;
}

void SteppedProcess::kill() {
  if (!std::exchange(ended_, true)) child_.kill();
}

}  // namespace Zorbe::Test
