// SPDX-License-Identifier: MIT
//
// Takes the steps of a simulated world: which process runs next, and what it does, is drawn.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "stress/simulation/world.h"
#include "support/number.h"

namespace Zorbe::Test::Simulation {

/// The program of a process that runs one of this kind, else null.
template <class P>
P* programOf(const Process& process) {
  return process.state() == Process::State::kRunning ? dynamic_cast<P*>(process.program())
                                                     : nullptr;
}

/// What a seed leads to: the same each time.
struct Outcome {
  uint64_t steps = 0;
  std::set<std::string> covered;   ///< the kinds of events that occurred
  std::string failure;             ///< empty: every invariant held
  std::vector<std::string> trace;  ///< when `tracing`
};

/// The valid seeds, and numbers of seeds: their sum does not overflow.
constexpr Range kSeeds{1, uint64_t{1} << 62};

class Stepper : private NonCopyable {
 public:
  explicit Stepper(World& world) : world_(world) {}
  virtual ~Stepper() = default;

  uint64_t steps() const { return steps_; }

 protected:
  /// False when no process has anything to do.
  bool step();

  /// After each step.
  virtual void check() = 0;

  /// Takes so many steps, with a disturbance before `percent` of them.
  void runWithDisturbances(unsigned steps, unsigned percent);
  virtual void disturb() = 0;

  /// Some process is stopped or continued, in `percent` of the cases; else killed or asked to
  /// leave.
  void disturbProcess(unsigned percent);
  virtual void kill(Process& process);

  bool failed() const { return !world_.failure().empty(); }

  /// One that runs, or null.
  Process* anyProcess();

  World& world_;

 private:
  struct Move {
    Process* process;
    EventSource* choice;
  };

  std::vector<Move> moves() const;

  uint64_t steps_ = 0;
};

}  // namespace Zorbe::Test::Simulation
