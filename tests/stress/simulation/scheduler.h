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
  void disturb() override;

  // Disturbances.
  void publish();
  void disturbReader();
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
