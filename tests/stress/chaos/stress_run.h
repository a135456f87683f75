// SPDX-License-Identifier: MIT
//
// Processes of a table that are killed, stopped, continued and restarted at random, while
// its directory is removed, and what has to hold all the time: see docs/verification/chaos.md.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "stress/chaos/process_usage.h"
#include "stress/chaos/shared_state.h"

namespace Zorbe::Test::Chaos {

/// Some are never killed and at least one is; there is room for all of them and the candidates.
constexpr unsigned kFewestReaders = 2;
constexpr unsigned kMostReaders = SharedState::kMostProcesses - 2;

struct Settings {
  unsigned kills = 0;    ///< how many, 0: until the time is over
  unsigned seconds = 0;  ///< how long, or, with `kills`, how long these may take
  uint64_t seed = 1;
  unsigned readers = 20;
  Flaw flaw = Flaw::kNone;
  std::chrono::seconds timeout{20};  ///< how long anything may take
};

struct Report {
  std::string failure;  ///< empty when everything held
  std::string trace;    ///< with a failure: the last faults, and the logs of the processes
  unsigned kills = 0;
  unsigned faults = 0;
  double seconds = 0;
  std::map<std::string, unsigned> faultsByKind;
  std::vector<double> underSame;     ///< milliseconds of each convergence, in ascending order,
  std::vector<double> underAnother;  ///< on the writer that was there before, or another one
  Counts descriptors;                ///< of the readers that are never killed, together
  Counts pages;                      ///< likewise, from the end of the warm-up
  long writerGrowth = 0;             ///< pages, at most, of any writer between its kills
  unsigned longestWriter = 0;        ///< checks that a writer has lived through, at most
};

/// Runs the stress test. Afterwards no process, file or lock of it is left.
Report runStress(const Settings& settings);

/// Makes `runStress` end all processes and report a failure. For signal handlers.
void interrupt() noexcept;

}  // namespace Zorbe::Test::Chaos
