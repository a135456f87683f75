// SPDX-License-Identifier: MIT
//
// ZORBE_SIMULATION_SEEDS and ZORBE_SIMULATION_FIRST: how many seeds, and the first.
#include "stress/simulation/seeds.h"
#include "stress/simulation/table/table_scheduler.h"

#include "fault/fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace Zorbe::Test::Simulation {
namespace {

using testing::HasSubstr;
using testing::UnorderedElementsAre;

constexpr uint64_t kQuickSeeds = 500;
constexpr size_t kShownSteps = 250;

template <class Reader>
TableRoles rolesWith() {
  return {[](Process& process, TableWorld& shared) {
    return std::make_unique<Reader>(process, shared);
  }};
}

TableRoles correctRolesOfTable() {
  return rolesWith<TableReaderProgram>();
}

// ---- Readers that each break a rule of the guide

/// Keeps what was not delivered between reset and complete.
class IgnoresComplete : public TableReaderProgram {
 public:
  using TableReaderProgram::TableReaderProgram;

 protected:
  void apply(const Table::Change<uint64_t, Cell>& change) override {
    if (change.kind == Table::Kind::complete) return unseen_.clear();
    TableReaderProgram::apply(change);
  }
};

class IgnoresErased : public TableReaderProgram {
 public:
  using TableReaderProgram::TableReaderProgram;

 protected:
  void apply(const Table::Change<uint64_t, Cell>& change) override {
    if (change.kind != Table::Kind::erased) TableReaderProgram::apply(change);
  }
};

/// Does not take what it is called for.
class LeavesTheRest : public TableReaderProgram {
 public:
  using TableReaderProgram::TableReaderProgram;

 protected:
  void drain() override {
    if (!copy_.empty()) return;
    TableReaderProgram::drain();
  }
};

Outcome simulateSeed(uint64_t seed, bool tracing) {
  return simulateTable(seed, correctRolesOfTable(), tracing);
}

class TableSimulation : public testing::Test {
 protected:
  ~TableSimulation() override { Fault::reset(); }

  /// What the first seed says that fails.
  static std::string foundWith(const TableRoles& roles) {
    for (uint64_t seed = 1; seed <= kQuickSeeds; ++seed) {
      const Outcome outcome = simulateTable(seed, roles, false);
      if (!outcome.failure.empty()) return outcome.failure;
    }
    return "not noticed";
  }

  static void print(const std::vector<std::string>& trace) {
    const size_t size = trace.size();
    for (size_t i = size - std::min(size, kShownSteps); i < size; ++i) {
      std::printf("%s\n", trace[i].c_str());
    }
  }
};

TEST_F(TableSimulation, EveryInvariantHoldsForEverySeed) {
  const uint64_t first = numberOf("ZORBE_SIMULATION_FIRST", 1);
  const uint64_t count = numberOf("ZORBE_SIMULATION_SEEDS", kQuickSeeds);
  uint64_t steps = 0;
  for (uint64_t seed = first; seed < first + count; ++seed) {
    const Outcome outcome = simulateTable(seed, correctRolesOfTable(), false);
    steps += outcome.steps;
    if (outcome.failure.empty()) continue;
    print(simulateTable(seed, correctRolesOfTable(), true).trace);
    FAIL() << outcome.failure << "\nthe same again: ZORBE_SIMULATION_FIRST=" << seed
           << " ZORBE_SIMULATION_SEEDS=1";
  }
  printFigure(count, steps);
}

TEST_F(TableSimulation, TheSameSeedTakesTheSameSteps) {
  expectTheSameStepsOfASeed(simulateSeed);
}

TEST_F(TableSimulation, EveryKindOfDisturbanceOccurs) {
  EXPECT_THAT(
      coveredUpTo(150, simulateSeed),
      UnorderedElementsAre(
          "connection ended before it was accepted", "connection reset", "directory removed",
          "directory removed under a put", "directory removed under a starting writer", "kick lost",
          "name in use", "no room for a record", "no room for a writer", "no writer",
          "reader killed", "reader killed in the middle of something", "reset", "reset of a copy",
          "second writer refused", "stopped", "stopped in the middle of something",
          "table continued", "table made", "writer does not listen yet", "writer killed",
          "writer killed in the middle of something"));
}

TEST_F(TableSimulation, ACopyThatKeepsWhatIsGoneIsNoticed) {
  EXPECT_THAT(foundWith(rolesWith<IgnoresComplete>()), HasSubstr("follows, and there are"));
  EXPECT_THAT(foundWith(rolesWith<IgnoresErased>()), HasSubstr("follows, and there are"));
}

TEST_F(TableSimulation, AReaderThatLeavesChangesIsNoticed) {
  EXPECT_EQ(foundWith(rolesWith<LeavesTheRest>()), "does not come to rest");
}

TEST_F(TableSimulation, StoresThatAreLostAreNoticed) {
  TableRoles roles = correctRolesOfTable();
  roles.stores = TableFiles::Stores::kLost;
  EXPECT_THAT(foundWith(roles), HasSubstr("key "));
}

}  // namespace
}  // namespace Zorbe::Test::Simulation
