// SPDX-License-Identifier: MIT
//
// Instructions in user space, counted one by one in a traced child.
#pragma once

#include "support/child_process.h"
#include "support/shared.h"
#include "support/tracer.h"

#include <sys/ptrace.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <optional>

namespace LoopTesting {

/// Calls what it is given; what that executes is counted.
using Counted = std::function<void(const std::function<void()>&)>;

/// Runs `scenario` in a child and returns how many instructions it executed inside the function
/// that it is passed; nothing when this process may not trace its children.
inline std::optional<long> stepsOf(const std::function<void(const Counted&)>& scenario) {
  enum Phase { kUncounted, kCounted, kOver };
  Zorbe::Test::Shared<std::atomic<Phase>> phase;
  Zorbe::Test::ChildProcess child("stepped", [&](Zorbe::Test::Channel& parent) {
    parent.await("begin");
    scenario([&phase](const std::function<void()>& work) {
      *phase = kCounted;
      ::raise(SIGSTOP);
      work();
      *phase = kUncounted;
    });
    *phase = kOver;
    ::raise(SIGSTOP);
  });
  if (!Zorbe::Test::Tracer::attach(child.pid())) return std::nullopt;
  child.send("begin");
  long steps = 0;
  int signal = 0;
  while (*phase != kOver) {
    const auto how = *phase == kCounted ? PTRACE_SINGLESTEP : PTRACE_CONT;
    Zorbe::Test::Tracer::resume(child.pid(), how, signal);
    const int status = Zorbe::Test::Tracer::wait(child.pid()).status;
    if (!WIFSTOPPED(status)) throw std::runtime_error("the traced child has ended");
    const bool ours = WSTOPSIG(status) == SIGSTOP || WSTOPSIG(status) == SIGTRAP;
    signal = ours ? 0 : WSTOPSIG(status);
    if (*phase == kCounted) ++steps;
  }
  Zorbe::Test::Tracer::resume(child.pid(), PTRACE_CONT);
  EXPECT_EQ(0, child.finish());
  return steps;
}

}  // namespace LoopTesting
