// SPDX-License-Identifier: MIT
//
// What the tests of each simulation do with seeds.
#pragma once

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>

#include "stress/simulation/stepper.h"

namespace Zorbe::Test::Simulation {

/// Simulates what follows from a seed, with a trace or without one.
using SimulateSeed = std::function<Outcome(uint64_t seed, bool tracing)>;

/// ZORBE_SIMULATION_SEEDS and ZORBE_SIMULATION_FIRST: see main.cpp.
inline uint64_t numberOf(const char* variable, uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  if (text == nullptr) return otherwise;
  const auto number = readNumber(text, kSeeds);
  if (!number) throw std::invalid_argument(std::string(variable) + " needs " + describe(kSeeds));
  return *number;
}

/// The figure that scripts/verify shows.
inline void printFigure(uint64_t seeds, uint64_t steps) {
  std::printf("%" PRIu64 " seeds, %" PRIu64 " steps\n", seeds, steps);
}

inline void expectTheSameStepsOfASeed(const SimulateSeed& simulate) {
  const Outcome first = simulate(7, true);
  EXPECT_EQ(simulate(7, true).trace, first.trace);
  EXPECT_EQ(simulate(7, false).steps, first.steps);
  EXPECT_NE(simulate(8, true).trace, first.trace);
}

/// The kinds of events that occur with the seeds up to this one.
inline std::set<std::string> coveredUpTo(uint64_t last, const SimulateSeed& simulate) {
  std::set<std::string> covered;
  for (uint64_t seed = 1; seed <= last; ++seed) covered.merge(simulate(seed, false).covered);
  return covered;
}

}  // namespace Zorbe::Test::Simulation
