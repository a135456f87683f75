// SPDX-License-Identifier: MIT
#include "scenario.h"

namespace Zorbe::Model {
namespace {

struct Table : Protocol {
  Table(Value slotsAtFirst, Value slotsAtMost, Value indexEntries, Value logEntries) {
    slots = slotsAtFirst;
    maxSlots = slotsAtMost;
    buckets = indexEntries;
    logCapacity = logEntries;
  }
  Table& fourWords() {
    words = 4;
    return *this;
  }
  Table& reusingTombstones() {
    tombstonesReused = true;
    return *this;
  }
  // Tags come round after as many changes as four of the largest logs hold: no real table is
  // worse off. The first change follows this sequence.
  Table& wrapping(Value afterChanges, Value lastSequence) {
    tags = afterChanges;
    sequence = lastSequence;
    return *this;
  }
};

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> kAll = {
#define SCENARIO(name, text, table, setUp, script, kills, longKills, keys) \
  {name, text, table, setUp, script, kills, longKills, keys},
#include "scenarios.def"
#undef SCENARIO
  };
  return kAll;
}

const std::vector<MistakeInfo>& mistakes() {
  static const std::vector<MistakeInfo> kAll = {
#define MISTAKE(enumerator, name, scenario, text) {Mistake::enumerator, name, scenario, text},
#include "mistakes.def"
#undef MISTAKE
  };
  return kAll;
}

const Scenario& scenarioNamed(std::string_view name) {
  for (const Scenario& scenario : scenarios()) {
    if (scenario.name == name) return scenario;
  }
  throw std::invalid_argument("no such scenario: " + std::string(name));
}

}  // namespace Zorbe::Model
