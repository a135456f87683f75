// SPDX-License-Identifier: MIT
#include "stress/simulation/simulation.h"

#include <algorithm>
#include <cstdlib>

#include "stress/simulation/invariants.h"
#include "stress/simulation/scheduler.h"
#include "stress/simulation/system_calls.h"

namespace Zorbe::Test::Simulation {
namespace {

constexpr std::size_t kShownSteps = 250;

}  // namespace

Roles correctRoles() {
  return {
      [](Process& process, const RootPath& root) {
        return std::make_unique<TableWriter>(process, root);
      },
      [](ReaderProgram& program, const RootPath& root, TableRef table, Reader::Counters& counters) {
        return std::make_unique<TableReader>(program, root, std::move(table), counters);
      },
      [](Process& process, const ReaderProgram::Maker& make) {
        return std::make_unique<ReaderProgram>(process, make);
      }};
}

Outcome simulate(uint64_t seed, const Roles& roles, bool tracing) {
  divertSocketCalls();
  divertFileCalls();
  setenv("SHMEM_ROOT", "/shmem", 1);
  World world(seed, tracing);
  Scheduler scheduler(world, roles);
  scheduler.run();
  return {scheduler.steps(), world.covered, world.failure(), world.trace()};
}

std::optional<Finding> search(uint64_t first, uint64_t count, const Roles& roles, uint64_t* steps) {
  for (uint64_t seed = first; seed < first + count; ++seed) {
    const Outcome outcome = simulate(seed, roles, false);
    if (steps != nullptr) *steps += outcome.steps;
    if (!outcome.failure.empty()) return Finding{seed, outcome.failure};
  }
  return std::nullopt;
}

std::string report(const Finding& finding, const Roles& roles) {
  const Outcome outcome = simulate(finding.seed, roles, true);
  std::string text =
      "seed " + std::to_string(finding.seed) + ": " + finding.failure + "\nHow it came to it:\n";
  const std::size_t size = outcome.trace.size();
  for (std::size_t i = size - std::min(size, kShownSteps); i < size; ++i)
    text += outcome.trace[i] + "\n";
  return text + "rerun with --seed " + std::to_string(finding.seed);
}

}  // namespace Zorbe::Test::Simulation
