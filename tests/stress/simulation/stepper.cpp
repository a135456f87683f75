// SPDX-License-Identifier: MIT
#include "stress/simulation/stepper.h"

namespace Zorbe::Test::Simulation {

std::vector<Stepper::Move> Stepper::moves() const {
  std::vector<Move> all;
  for (const auto& process : world_.processes()) {
    for (EventSource* choice : process->choices()) all.push_back({process.get(), choice});
  }
  return all;
}

// Picks a process first, then what it does: one with many descriptors gets no more turns.
bool Stepper::step() {
  const std::vector<Move> all = moves();
  if (all.empty()) return false;
  const Move& move = all[world_.random.below(all.size())];
  if (world_.isTracing()) {
    world_.note(
        move.process->name() + " " +
        (move.choice != nullptr ? "gets an event of " + move.choice->describe() : "continues"));
  }
  move.process->run(move.choice);
  ++steps_;
  check();
  return true;
}

Process* Stepper::anyProcess() {
  const auto& all = world_.processes();
  if (all.empty()) return nullptr;
  Process* const process = all[world_.random.below(all.size())].get();
  return process->state() == Process::State::kRunning ? process : nullptr;
}

}  // namespace Zorbe::Test::Simulation
