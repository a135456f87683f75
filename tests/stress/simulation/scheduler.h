// SPDX-License-Identifier: MIT
#pragma once

#include "stress/simulation/simulation.h"
#include "stress/simulation/stepper.h"

namespace Zorbe::Test::Simulation {

/// Picks every next step of a world. Alternates between disturbances and idle times, when more
/// has to be true.
class Scheduler : private Stepper {
 public:
  Scheduler(World& world, const Roles& roles);

  void run();
  using Stepper::steps;

 private:
  void check() override;

  // Disturbances.
  void runWithDisturbances(unsigned steps);
  void disturb();
  void publish();
  void disturbReader();
  void disturbProcess();
  void startWriter();
  void startReader();

  // Checks when idle.
  void resumeAll();
  void checkWithoutWriter();
  void checkWithWriter();
  bool runUntilIdle(int64_t until);
  void writeFile();
  void leaveAll();

  Roles roles_;
  unsigned readers_;
};

}  // namespace Zorbe::Test::Simulation
