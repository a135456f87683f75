// SPDX-License-Identifier: MIT
//
// The processes of a stress run, as their parent sees them.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "stress/chaos/probe.h"
#include "stress/chaos/shared_state.h"
#include "support/child_process.h"
#include "support/shared.h"

namespace Zorbe::Test::Chaos {

using Clock = std::chrono::steady_clock;

/// The failure of a stress run.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The state of a process, and the process that has it now.
class Member {
 public:
  using Role = std::function<void(Channel& parent, ProcessState& state)>;

  Member(std::string name, ProcessState& state, Role role);

  const std::string& name() const { return name_; }
  ProcessState& state() { return state_; }
  bool isAlive() const { return process_ != nullptr; }
  bool isStopped() const { return stopped_; }
  bool isAwake() const { return isAlive() && !stopped_; }
  pid_t pid() const { return process_->pid(); }
  Channel& channel() { return process_->channel(); }
  std::string log() const { return process_ ? process_->log() : ""; }

  void start();
  void kill();
  void stop();
  void resume();

  /// SIGTERM, after which it has to end by itself and without an error.
  void leave();

  /// Throws Failure for a state that must never occur.
  void requireSanity();

 private:
  void clearState();
  void signal(int number);

  std::string name_;
  ProcessState& state_;
  Role role_;
  std::unique_ptr<ChildProcess> process_;
  bool stopped_ = false;
};

/// All of them: readers, of which some are never killed, the candidate that is always there,
/// and a competitor.
class Processes {
 public:
  Processes(unsigned readerCount, const std::string& oraclePath, Flaw flaw);

  std::vector<Member>& readers() { return readers_; }
  Member& candidate() { return candidates_[0]; }
  Member& competitor() { return candidates_[1]; }

  /// Readers before this one are never killed.
  unsigned longLivedReaders() const { return longLived_; }

  /// The process that has the lock, or null.
  Member* writer();

  /// The process that has the lock, or is expected to get it.
  Member& expectedWriter();

  /// Asks the writer, now or later, to publish. A stopped one receives it later.
  void publish(unsigned count);

  /// Waits until the condition holds, woken by messages of the processes: false when it does not
  /// in time. Throws Failure when a process has ended by itself.
  bool await(Clock::time_point deadline, const std::function<bool()>& condition);

  /// The writer has done everything that it was asked for, and each running reader is attached to
  /// it and has a copy of the table, which `probe` has looked at.
  bool isConverged(const Probe& probe);

  /// Why it is not.
  std::string describe(const Probe& probe);

  /// What the writers have published so far.
  SharedState& shared() { return *shared_; }

  /// All processes, with the ends of their logs.
  std::string logs();

  void forEach(const std::function<void(Member&)>& action);

 private:
  static bool isBehind(Member& reader, const Probe& probe);
  void wait(Clock::time_point deadline);

  Shared<SharedState> shared_;
  unsigned longLived_;
  uint32_t request_ = 0;
  std::vector<Member> readers_;
  std::vector<Member> candidates_;
};

}  // namespace Zorbe::Test::Chaos
