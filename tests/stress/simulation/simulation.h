// SPDX-License-Identifier: MIT
//
// One life of a table in a simulated world, all of it decided by a seed: who runs next, what
// happens to whom, and where system calls are interrupted.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "stress/simulation/table_reader.h"
#include "stress/simulation/table_writer.h"
#include "stress/simulation/world.h"
#include "support/number.h"

namespace Zorbe::Test::Simulation {

/// How writers and readers are made: those that follow the rules, or one that breaks one.
struct Roles {
  WriterProgram::Maker writer;
  ReaderProgram::Maker reader;
  std::function<std::unique_ptr<ReaderProgram>(Process&, const ReaderProgram::Maker&)>
      readerProgram;
};

Roles lawfulRoles();

struct Outcome {
  uint64_t steps = 0;
  std::set<std::string> met;       ///< what kinds of trouble there were
  std::string failure;             ///< empty: all promises were kept
  std::vector<std::string> trace;  ///< when asked for
};

/// The same outcome for the same seed.
Outcome simulate(uint64_t seed, const Roles& roles, bool tracing);

/// Which seeds there are, and how many can be asked for: few enough to be added.
constexpr Range seeds{1, uint64_t{1} << 62};

/// By this name a test records the seed that failed it, for those who say it at the end.
constexpr const char* failingSeed = "failing_seed";

struct Finding {
  uint64_t seed;
  std::string failure;
};

/// The first of `count` seeds, from `first` on, that fails. `steps` receives their sum.
std::optional<Finding> search(uint64_t first, uint64_t count, const Roles& roles,
                              uint64_t* steps = nullptr);

/// What to print about a failing seed: what failed, how it came to that, and its number.
std::string report(const Finding& finding, const Roles& roles);

}  // namespace Zorbe::Test::Simulation
