// SPDX-License-Identifier: MIT
//
// One simulated machine: a kernel's sockets and files, a clock, and processes.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "stress/simulation/process.h"
#include "support/kernel/clock.h"
#include "support/kernel/files.h"
#include "support/kernel/sockets.h"
#include "support/random.h"

namespace Zorbe::Test::Simulation {

/// The table's files, mapped by its writer and by its readers.
struct Table {
  unsigned fenix = 0;
  uint64_t sequence = 0;  ///< of the last change
  bool replaced = false;  ///< by the next incarnation
};
using TableRef = std::shared_ptr<Table>;

class World {
 public:
  World(uint64_t seed, bool tracing);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  Random random;
  std::set<std::string> met;  ///< names of what has happened
  Kernel::Sockets sockets;
  Kernel::Files files;
  Kernel::Clock clock;
  unsigned lastFenix = 0;

  Process& start(const std::string& name, Process::Loader loader);
  const std::vector<std::unique_ptr<Process>>& processes() const { return processes_; }
  void bury();  ///< forgets the processes that are gone

  bool advanceClock();  ///< to the next timer, if there is one

  /// The process that runs may be interrupted here, and is to be.
  bool wantsPause() { return random.percent(pausePercent_); }

  /// What /proc tells about a process, as far as anyone asks.
  bool describeProcess(const std::string& path, std::string& content) const;

  // What has happened.
  void fail(const std::string& what);
  const std::string& failure() const { return failure_; }
  bool isTracing() const { return tracing_; }
  void note(const std::string& what);
  const std::vector<std::string>& trace() const { return trace_; }

 private:
  bool tracing_;
  unsigned pausePercent_;
  int lastPid_ = 100;
  std::vector<std::unique_ptr<Process>> processes_;
  std::string failure_;
  std::vector<std::string> trace_;
};

}  // namespace Zorbe::Test::Simulation
