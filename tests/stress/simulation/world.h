// SPDX-License-Identifier: MIT
//
// One simulated machine: sockets, files, a clock, and processes.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "stress/simulation/process.h"
#include "support/kernel/clock.h"
#include "support/kernel/files.h"
#include "support/kernel/sockets.h"
#include "support/noncopyable.h"
#include "support/random.h"

namespace Zorbe::Test::Simulation {

/// The table's files, mapped by its writer and by its readers.
struct MappedTable {
  unsigned fenix = 0;
  uint64_t sequence = 0;  ///< of the last change
  bool replaced = false;  ///< by the next incarnation
};
using TableRef = std::shared_ptr<MappedTable>;

class World : private NonCopyable {
 public:
  World(uint64_t seed, bool tracing);
  ~World();

  Random random;
  std::set<std::string> covered;  ///< names of the events that occurred
  Kernel::Sockets sockets;
  Kernel::Files files;
  Kernel::Clock clock;
  unsigned lastFenix = 0;

  Process& start(const std::string& name, Process::Loader loader);
  const std::vector<std::unique_ptr<Process>>& processes() const { return processes_; }
  void reap();  ///< removes the processes that have exited

  bool advanceClock();  ///< to the next timer, if there is one

  /// Whether the running process, which may be interrupted here, is interrupted.
  bool wantsPause() { return random.percent(pausePercent_); }

  /// The files of /proc that the library reads.
  bool describeProcess(const std::string& path, std::string& content) const;

  // The result.
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
