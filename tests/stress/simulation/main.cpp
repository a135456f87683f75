// SPDX-License-Identifier: MIT
//
// simulation_tests --seed N       one seed, with the trace of every step
// simulation_tests --seeds COUNT  that many seeds; --first N begins at another than 1
//
// In the environment, ZORBE_SIMULATION_SEEDS and ZORBE_SIMULATION_FIRST have the same meaning.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

#include "stress/simulation/simulation.h"

namespace {

using namespace Zorbe::Test::Simulation;

int runOne(uint64_t seed) {
  const Outcome outcome = simulate(seed, correctRoles(), true);
  for (const std::string& line : outcome.trace) std::printf("%s\n", line.c_str());
  std::printf("seed %llu: %llu steps, %s\n", static_cast<unsigned long long>(seed),
              static_cast<unsigned long long>(outcome.steps),
              outcome.failure.empty() ? "every promise kept" : outcome.failure.c_str());
  return outcome.failure.empty() ? 0 : 1;
}

/// An error in the arguments.
class Misuse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The seed of --seed, or nothing. The tests read the other options from the environment.
std::optional<uint64_t> readArguments(int argc, char** argv) {
  std::optional<uint64_t> one;
  for (int i = 1; i < argc; i += 2) {
    const std::string name = argv[i];
    if (name != "--seed" && name != "--seeds" && name != "--first")
      throw Misuse("no such option: " + name);
    const char* const value = argv[i + 1];  // argv ends with a null
    const auto number = value ? Zorbe::Test::readNumber(value, kSeeds) : std::nullopt;
    if (!number) throw Misuse(name + " needs " + Zorbe::Test::describe(kSeeds));
    if (name == "--seed") one = number;
    if (name == "--seeds") setenv("ZORBE_SIMULATION_SEEDS", value, 1);
    if (name == "--first") setenv("ZORBE_SIMULATION_FIRST", value, 1);
  }
  return one;
}

/// Keeps the seed that failed a test, to be printed after everything else, at the end of the log.
class FailingSeed final : public testing::EmptyTestEventListener {
 public:
  void OnTestEnd(const testing::TestInfo& test) override {
    const testing::TestResult& result = *test.result();
    for (int i = 0; i < result.test_property_count(); ++i) {
      const testing::TestProperty& property = result.GetTestProperty(i);
      if (property.key() == std::string(kFailingSeed)) seed_ = property.value();
    }
  }

  void print(const char* program) const {
    if (!seed_.empty()) std::printf("the same again: %s --seed %s\n", program, seed_.c_str());
  }

 private:
  std::string seed_;
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  try {
    if (const auto seed = readArguments(argc, argv)) return runOne(*seed);
  } catch (const Misuse& misuse) {
    std::fprintf(stderr, "simulation_tests: %s\n", misuse.what());
    return 2;
  }
  auto* const failing = new FailingSeed;  // belongs to the tests from now on
  testing::UnitTest::GetInstance()->listeners().Append(failing);
  const int status = RUN_ALL_TESTS();
  failing->print(argv[0]);
  return status;
}
