// SPDX-License-Identifier: MIT
//
// The processes of a storm, as their conductor sees them.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "stress/chaos/board.h"
#include "support/child_process.h"
#include "support/shared.h"

namespace Zorbe::Test::Chaos {

using Clock = std::chrono::steady_clock;

/// What a conductor gives up with.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One place, and the process that has it at present.
class Member {
 public:
  using Role = std::function<void(Channel& parent, Place& place)>;

  Member(std::string name, Place& place, Role role);

  const std::string& name() const { return name_; }
  Place& place() { return place_; }
  bool isAlive() const { return process_ != nullptr; }
  bool isStopped() const { return stopped_; }
  bool isAwake() const { return isAlive() && !stopped_; }
  pid_t pid() const { return process_->pid(); }
  Channel& channel() { return process_->channel(); }
  std::string log() const { return process_ ? process_->log() : ""; }

  void start();
  void kill();
  void stop();
  void goOn();

  /// SIGTERM, after which it has to end by itself and without an error.
  void leave();

  /// Throws Failure for what must never be seen.
  void requireSanity();

  /// The departure of the writer `pid` is owed to this reader, which is attached to it.
  void owe(pid_t writer);

  /// Throws Failure when `writer` is another one, and the departure was not told.
  void requireTold(pid_t writer);

 private:
  void clearPlace();
  void signal(int number);

  std::string name_;
  Place& place_;
  Role role_;
  std::unique_ptr<ChildProcess> process_;
  bool stopped_ = false;
  pid_t owedWriter_ = 0;
  uint32_t departuresBefore_ = 0;
};

/// All of them: readers, of which some are never killed, the candidate that is always there,
/// and a competitor.
class Crew {
 public:
  Crew(unsigned readerCount, const std::string& witnessPath, Flaw flaw);

  std::vector<Member>& readers() { return readers_; }
  Member& candidate() { return candidates_[0]; }
  Member& competitor() { return candidates_[1]; }

  /// Readers before this one are never killed.
  unsigned elders() const { return elders_; }

  /// Whoever has the lock, or null.
  Member* writer();

  /// Whoever has the lock, or is expected to get it.
  Member& writerToBe();

  /// Asks whoever is the writer now, or will be, to publish. A stopped one hears of it later.
  void publish(unsigned count);

  /// What each that runs has to tell wakes the caller, until the condition holds: false when
  /// it does not in time. Throws Failure when a process has ended by itself.
  bool await(Clock::time_point deadline, const std::function<bool()>& condition);

  /// Everybody who runs is attached to the writer, and has read and reported its last
  /// publication.
  bool isConverged();

  /// Why it is not.
  std::string describe();

  /// All processes, with the ends of their logs.
  std::string logs();

  void forEach(const std::function<void(Member&)>& action);

 private:
  bool isBehind(Member& reader, Place& writer) const;
  void wait(Clock::time_point deadline);

  Shared<Board> board_;
  unsigned elders_;
  uint32_t request_ = 0;
  std::vector<Member> readers_;
  std::vector<Member> candidates_;
};

}  // namespace Zorbe::Test::Chaos
