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

void Stepper::runWithDisturbances(unsigned steps, unsigned percent) {
  world_.note("disturbances begin");
  for (unsigned i = 0; i < steps && !failed(); ++i) {
    if (world_.random.percent(percent)) disturb();
    if (!step() || world_.random.percent(3)) world_.advanceClock();
  }
}

void Stepper::disturbProcess(unsigned percent) {
  Process* const process = anyProcess();
  if (process == nullptr) return;
  const unsigned kind = world_.random.below(100);
  if (kind < percent) {
    world_.note(process->name() + (process->isStopped() ? " is continued" : " is stopped"));
    world_.covered.insert(process->isWaiting() ? "stopped" : "stopped in the middle of something");
    process->stop(!process->isStopped());
  } else if (kind < 85) {
    kill(*process);
  } else {
    world_.note(process->name() + " is asked to leave");
    process->request([process] { process->leave(); });
  }
}

void Stepper::kill(Process& process) {
  world_.note(process.name() + " is killed");
  world_.covered.insert(process.isWaiting() ? "killed" : "killed in the middle of something");
  process.kill();
}

Process* Stepper::anyProcess() {
  const auto& all = world_.processes();
  if (all.empty()) return nullptr;
  Process* const process = all[world_.random.below(all.size())].get();
  return process->state() == Process::State::kRunning ? process : nullptr;
}

}  // namespace Zorbe::Test::Simulation
