// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <vector>

#include "stress/chaos/crew.h"
#include "stress/chaos/storm.h"

namespace Zorbe::Test::Chaos {

/// Looks, whenever all have converged, at what those hold who have lived long.
class Rest {
 public:
  Rest(Crew& crew, std::chrono::seconds patience, Report& report);

  /// Throws Failure when something has grown. Memory counts from the first survey on that
  /// is `warm`.
  void survey(bool warm);

 private:
  struct Elder {
    Course descriptors;
    Course pages;
  };

  void surveyElder(Member& reader, Elder& elder, bool warm);
  void surveyWriter(Member& writer);
  void sumUp();
  void surveyDescriptors(Member& member, Course& course, const std::function<long()>& count);
  long firstCount(Member& member, const std::function<long()>& count);
  void require(Member& member, long expected, const std::function<long()>& count);
  static void requireFlat(const Member& member, const Course& pages);

  Crew& crew_;
  std::chrono::seconds patience_;
  Report& report_;
  std::vector<Elder> elders_;
  pid_t writer_ = 0;
  unsigned writerRests_ = 0;
  Elder writerCourse_;
};

}  // namespace Zorbe::Test::Chaos
