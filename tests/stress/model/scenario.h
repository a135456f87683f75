// SPDX-License-Identifier: MIT
//
// Small tables and what is done to them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "protocol.h"

namespace Zorbe::Model {

struct Scenario {
  std::string name;
  std::string text;
  Protocol protocol;
  std::string setUp;   // steps before the readers come, by blanks
  std::string script;  // steps of the writers, each of which may be killed at every store
  int kills;           // writers killed one after the other
  int longKills;       // in the long form
  std::string keys;    // that are looked up
};

const std::vector<Scenario>& scenarios();
const Scenario& scenarioNamed(std::string_view name);

struct Figures {
  uint64_t histories = 0;  // sequences of stores, each with its kills
  uint64_t runs = 0;       // of readers
  uint64_t states = 0;     // of readers: what one knows and what it may see
};

/// What was found wrong, empty if nothing, and how it came about.
struct Finding {
  std::string what;
  std::string trace;
};

/// Explores everything; ends at the first violation.
Finding explore(const Scenario& scenario, const Protocol& protocol, int kills, Figures& figures);

}  // namespace Zorbe::Model
