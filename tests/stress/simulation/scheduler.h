// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "stress/simulation/simulation.h"

namespace Zorbe::Test::Simulation {

/// Picks every next step of a world. Alternates between disturbances and idle times, when more
/// has to be true.
class Scheduler {
 public:
  Scheduler(World& world, const Roles& roles);

  void run();
  uint64_t steps() const { return steps_; }

 private:
  struct Move {
    Process* process;
    EventSource* choice;
  };

  bool failed() const { return !world_.failure().empty(); }

  // Steps.
  bool step();
  std::vector<Move> moves() const;
  void check();

  // Disturbances.
  void runWithDisturbances(unsigned steps);
  void disturb();
  void publish();
  void disturbReader();
  void disturbProcess();
  void startWriter();
  void startReader();
  Process* anyProcess();

  // Checks when idle.
  void resumeAll();
  void checkWithoutWriter();
  void checkWithWriter();
  bool runUntilIdle(int64_t until);
  void writeFile();
  void leaveAll();

  World& world_;
  Roles roles_;
  unsigned readers_;
  uint64_t steps_ = 0;
};

}  // namespace Zorbe::Test::Simulation
