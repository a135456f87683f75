// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <vector>

#include "stress/chaos/processes.h"
#include "stress/chaos/stress_run.h"

namespace Zorbe::Test::Chaos {

/// Checks the resources of long-lived processes whenever all have converged.
class IdleCheck {
 public:
  IdleCheck(Processes& processes, std::chrono::seconds timeout, Report& report);

  /// Throws Failure when something has grown. Memory counts from the first check that is
  /// `warm`.
  void check(bool warm);

 private:
  struct LongLived {
    Course descriptors;
    Course pages;
  };

  void checkLongLived(Member& reader, LongLived& usage, bool warm);
  void checkWriter(Member& writer);
  void sumUp();
  void checkDescriptors(Member& member, Course& course, const std::function<long()>& count);
  long firstCount(Member& member, const std::function<long()>& count);
  void require(Member& member, long expected, const std::function<long()>& count);
  static void requireFlat(const Member& member, const Course& pages);

  Processes& processes_;
  std::chrono::seconds timeout_;
  Report& report_;
  std::vector<LongLived> longLived_;
  pid_t writer_ = 0;
  unsigned writerChecks_ = 0;
  LongLived writerCourse_;
};

}  // namespace Zorbe::Test::Chaos
