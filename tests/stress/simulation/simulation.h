// SPDX-License-Identifier: MIT
//
// One run of a table in a simulated world. A seed decides everything: which process runs next,
// what happens to it, and where system calls are interrupted.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "stress/simulation/stepper.h"
#include "stress/simulation/table_reader.h"
#include "stress/simulation/table_writer.h"
#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

/// Makes writers and readers: correct ones, or one that breaks a rule.
struct Roles {
  WriterProgram::Maker writer;
  ReaderProgram::Maker reader;
  std::function<std::unique_ptr<ReaderProgram>(Process&, const ReaderProgram::Maker&)>
      readerProgram;
};

Roles correctRoles();

/// The same outcome for the same seed.
Outcome simulate(uint64_t seed, const Roles& roles, bool tracing);

/// The property of a test that records the seed that failed it.
constexpr const char* kFailingSeed = "failing_seed";

struct Finding {
  uint64_t seed;
  std::string failure;
};

/// The first of `count` seeds, from `first` on, that fails. `steps` receives their sum.
std::optional<Finding> search(uint64_t first, uint64_t count, const Roles& roles,
                              uint64_t* steps = nullptr);

/// The text about a failing seed: the failure, the trace that leads to it, and the number.
std::string report(const Finding& finding, const Roles& roles);

}  // namespace Zorbe::Test::Simulation
