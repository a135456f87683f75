// SPDX-License-Identifier: MIT
//
// Hosts with copies of a table, to which all kinds of outages happen at random, and what has to
// hold all the time and after each burst of them: see docs/verification/relay-chaos.md.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Zorbe::Test::RelayChaos {

struct Settings {
  unsigned seconds = 0;  ///< how long; 0: until all rounds are over
  unsigned rounds = 0;   ///< how many; 0: until the time is over
  uint64_t seed = 1;
  std::vector<std::string> without;  ///< kinds of events that are left out
  std::chrono::seconds timeout{60};  ///< how long all tables may take to be equal
};

struct Report {
  std::string failure;  ///< empty when everything held
  std::string trace;    ///< with a failure: the last events, and the logs of the processes
  unsigned rounds = 0;
  unsigned kills = 0;
  unsigned events = 0;
  uint64_t written = 0;   ///< changes of the writer
  uint64_t followed = 0;  ///< by the readers of all copies
  double seconds = 0;
  double slowest = 0;  ///< seconds until all tables were equal, at most
  std::map<std::string, unsigned> byKind;
};

/// Afterwards no process or file of it is left.
Report run(const Settings& settings);

}  // namespace Zorbe::Test::RelayChaos
