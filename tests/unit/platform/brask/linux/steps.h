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

/// Which instructions of a traced child are counted.
class Counted {
 public:
  enum Phase { kUncounted, kCounted, kOver };

  explicit Counted(std::atomic<Phase>& phase) : phase_(phase) {}

  /// Those from here on, until end().
  void begin() const {
    phase_ = kCounted;
    ::raise(SIGSTOP);
  }
  void end() const { phase_ = kUncounted; }

  /// Those of `work`.
  void operator()(const std::function<void()>& work) const {
    begin();
    work();
    end();
  }

 private:
  std::atomic<Phase>& phase_;
};

/// Runs `scenario` in a child and returns how many instructions it executed while they were
/// counted; nothing when this process may not trace its children.
inline std::optional<long> stepsOf(const std::function<void(const Counted&)>& scenario) {
  Zorbe::Test::Shared<std::atomic<Counted::Phase>> phase;
  Zorbe::Test::ChildProcess child("stepped", [&](Zorbe::Test::Channel& parent) {
    parent.await("begin");
    scenario(Counted(*phase));
    *phase = Counted::kOver;
    ::raise(SIGSTOP);
  });
  if (!Zorbe::Test::Tracer::attach(child.pid())) return std::nullopt;
  child.send("begin");
  long steps = 0;
  int signal = 0;
  while (*phase != Counted::kOver) {
    const auto how = *phase == Counted::kCounted ? PTRACE_SINGLESTEP : PTRACE_CONT;
    Zorbe::Test::Tracer::resume(child.pid(), how, signal);
    const int status = Zorbe::Test::Tracer::wait(child.pid()).status;
    if (!WIFSTOPPED(status)) throw std::runtime_error("the traced child has ended");
    const bool ours = WSTOPSIG(status) == SIGSTOP || WSTOPSIG(status) == SIGTRAP;
    signal = ours ? 0 : WSTOPSIG(status);
    if (*phase == Counted::kCounted) ++steps;
  }
  Zorbe::Test::Tracer::resume(child.pid(), PTRACE_CONT);
  EXPECT_EQ(0, child.finish());
  return steps;
}

/// Runs `scenario` with `few` others and with `many`: what it has counted is less than twice as
/// many instructions.
inline void expectNoMoreAmong(int many, int few,
                              const std::function<void(int, const Counted&)>& scenario) {
  const auto among = [&](int others) {
    return stepsOf([&](const Counted& counted) { scenario(others, counted); });
  };
  const auto least = among(few), most = among(many);
  if (!least || !most) GTEST_SKIP() << "cannot trace a child";
  EXPECT_GT(*least, 0);
  EXPECT_LT(*most, 2 * *least) << *least << " instructions among few";
}

}  // namespace LoopTesting
