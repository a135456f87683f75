// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "stress/chaos/processes.h"
#include "stress/chaos/stress_run.h"

namespace Zorbe::Test::Chaos {

/// Checks the resources of long-lived processes whenever all have converged.
class IdleCheck {
 public:
  IdleCheck(Processes& processes, Probe& probe, std::chrono::seconds timeout, Report& report);

  /// Throws Failure when something has grown. Memory counts from the first check that is
  /// `warm`.
  void check(bool warm);

  /// Besides, the status that the writer publishes ten times a second: each running reader sleeps
  /// and has reported everything.
  void checkWriter();

 private:
  struct LongLived {
    Counts descriptors;
    Counts pages;
  };

  void checkLongLived(Member& reader, LongLived& usage, bool warm);
  std::string awake();
  long connections();
  void sumUp();
  void checkDescriptors(Member& member, Counts& counts, const std::function<long()>& count);
  long firstCount(Member& member, const std::function<long()>& count);
  void require(Member& member, long expected, const std::function<long()>& count);
  static void requireFlat(const Member& member, const Counts& pages);

  Processes& processes_;
  Probe& probe_;
  std::chrono::seconds timeout_;
  Report& report_;
  std::vector<LongLived> longLived_;
  pid_t writer_ = 0;
  unsigned writerChecks_ = 0;
  LongLived writerCounts_;
};

}  // namespace Zorbe::Test::Chaos
