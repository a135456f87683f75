// SPDX-License-Identifier: MIT
//
// simulation_tests --seed N       one seed, with the trace of every step
// simulation_tests --seeds COUNT  that many seeds; --first N begins at another than 1
//
// In the environment, ZORBE_SIMULATION_SEEDS and ZORBE_SIMULATION_FIRST ask for the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "simulation/simulation.h"

namespace {

using namespace Zorbe::Test::Simulation;

int runOne(uint64_t seed) {
  const Outcome outcome = simulate(seed, lawfulRoles(), true);
  for (const std::string& line : outcome.trace) std::printf("%s\n", line.c_str());
  std::printf("seed %llu: %llu steps, %s\n", static_cast<unsigned long long>(seed),
              static_cast<unsigned long long>(outcome.steps),
              outcome.failure.empty() ? "every promise kept" : outcome.failure.c_str());
  return outcome.failure.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  for (int i = 1; i + 1 < argc; i += 2) {
    const char* const value = argv[i + 1];
    if (std::strcmp(argv[i], "--seed") == 0) return runOne(std::strtoull(value, nullptr, 10));
    if (std::strcmp(argv[i], "--seeds") == 0) setenv("ZORBE_SIMULATION_SEEDS", value, 1);
    if (std::strcmp(argv[i], "--first") == 0) setenv("ZORBE_SIMULATION_FIRST", value, 1);
  }
  return RUN_ALL_TESTS();
}
