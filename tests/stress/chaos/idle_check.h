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

  /// Besides, what the writer says about its readers: that each running one sleeps and has
  /// reported everything. It says so ten times a second.
  void checkWriter();

 private:
  struct LongLived {
    Course descriptors;
    Course pages;
  };

  void checkLongLived(Member& reader, LongLived& usage, bool warm);
  std::string awake();
  long connections();
  void sumUp();
  void checkDescriptors(Member& member, Course& course, const std::function<long()>& count);
  long firstCount(Member& member, const std::function<long()>& count);
  void require(Member& member, long expected, const std::function<long()>& count);
  static void requireFlat(const Member& member, const Course& pages);

  Processes& processes_;
  Probe& probe_;
  std::chrono::seconds timeout_;
  Report& report_;
  std::vector<LongLived> longLived_;
  pid_t writer_ = 0;
  unsigned writerChecks_ = 0;
  LongLived writerCourse_;
};

}  // namespace Zorbe::Test::Chaos
