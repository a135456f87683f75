// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "support/child_process.h"

namespace Zorbe::Test::RelayChaos {

using Clock = std::chrono::steady_clock;

/// The failure of a run.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A process of the run, which is started again and again.
class Process {
 public:
  /// A program with its arguments.
  Process(std::string name, const std::vector<std::string>& arguments);

  /// A function, which says "ready" when it can be ended by SIGTERM.
  Process(const std::string& name, const ChildProcess::Role& role);

  const std::string& name() const { return name_; }
  bool isAlive() const { return child_ != nullptr; }
  bool isStopped() const { return isStopped_; }
  bool isAwake() const { return isAlive() && !isStopped_; }
  pid_t pid() const { return child_->pid(); }
  Channel& channel() { return child_->channel(); }

  void start();
  void kill();
  void stop();
  void resume();

  /// SIGTERM, after which it has to end by itself and with status 0.
  void leave();

  /// Whether it has ended by itself; `reap` then returns its status.
  bool hasEnded() { return isAlive() && !child_->channel().drain(); }
  int reap();

  /// The end of what it has written to its log, now or before its end.
  std::string log() const { return child_ ? child_->log() : lastLog_; }

 private:
  std::string name_;
  std::function<std::unique_ptr<ChildProcess>()> make_;
  std::unique_ptr<ChildProcess> child_;
  std::string lastLog_;
  bool isStopped_ = false;
  Clock::time_point startedAt_{};
};

}  // namespace Zorbe::Test::RelayChaos
