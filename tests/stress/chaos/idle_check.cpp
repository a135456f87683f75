// SPDX-License-Identifier: MIT
#include "stress/chaos/idle_check.h"

#include <algorithm>

#include "support/sanitized.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr unsigned kChecksUntilWarm = 10;

}  // namespace

IdleCheck::IdleCheck(Processes& processes, std::chrono::seconds timeout, Report& report)
    : processes_(processes),
      timeout_(timeout),
      report_(report),
      longLived_(processes.longLivedReaders()) {}

void IdleCheck::check(bool warm) {
  for (size_t i = 0; i < longLived_.size(); ++i) {
    Member& reader = processes_.readers()[i];
    if (reader.isAwake()) checkLongLived(reader, longLived_[i], warm);
  }
  if (Member* const writer = processes_.writer()) checkWriter(*writer);
  sumUp();
}

void IdleCheck::checkLongLived(Member& reader, LongLived& usage, bool warm) {
  const pid_t pid = reader.pid();
  const auto count = [pid] { return long{descriptorsOf(pid)}; };
  checkDescriptors(reader, usage.descriptors, count);
  if (!warm) return;
  usage.pages.note(residentPagesOf(pid));
  requireFlat(reader, usage.pages);
}

// Between its kills: what it has besides its connections.
void IdleCheck::checkWriter(Member& writer) {
  const pid_t pid = writer.pid();
  if (std::exchange(writer_, pid) != pid) {
    writerCourse_ = {};
    writerChecks_ = 0;
  }
  report_.longestWriter = std::max(report_.longestWriter, ++writerChecks_);
  Place& place = writer.place();
  const auto count = [&] { return long{descriptorsOf(pid)} - place.connections; };
  checkDescriptors(writer, writerCourse_.descriptors, count);
  if (writerChecks_ < kChecksUntilWarm) return;
  writerCourse_.pages.note(residentPagesOf(pid));
  requireFlat(writer, writerCourse_.pages);
  report_.writerGrowth = std::max(report_.writerGrowth, writerCourse_.pages.growth());
}

void IdleCheck::checkDescriptors(Member& member, Course& course,
                                 const std::function<long()>& count) {
  if (course.first) require(member, *course.first, count);
  course.note(course.first ? *course.first : firstCount(member, count));
}

// All later counts are compared with the first. Counts while the process sleeps: then it has no
// temporary descriptors, and has published the number of its connections.
long IdleCheck::firstCount(Member& member, const std::function<long()>& count) {
  long first = 0;
  const auto isSteady = [&, pid = member.pid()] {
    const auto sleep = sleepOf(pid);
    first = count();
    return sleep && sleepOf(pid) == sleep;
  };
  if (processes_.await(Clock::now() + timeout_, isSteady)) return first;
  throw Failure(member.name() + " does not become idle");
}

// Waits: the process may have a temporary descriptor.
void IdleCheck::require(Member& member, long expected, const std::function<long()>& count) {
  if (processes_.await(Clock::now() + timeout_, [&] { return count() == expected; })) return;
  throw Failure(member.name() + " has " + std::to_string(count()) + " descriptors instead of " +
                std::to_string(expected));
}

// Sanitizers keep what was freed.
void IdleCheck::requireFlat(const Member& member, const Course& pages) {
  if (kIsSanitized || pages.growth() <= kPagesOfGrowth) return;
  throw Failure(member.name() + " has grown by " + std::to_string(pages.growth()) +
                " pages of memory");
}

void IdleCheck::sumUp() {
  const auto sum = [this](Course LongLived::*part) {
    Course all;
    for (const LongLived& usage : longLived_) {
      const Course& one = usage.*part;
      if (!one.first) continue;
      all.first = all.first.value_or(0) + *one.first;
      all.last += one.last;
    }
    return all;
  };
  report_.descriptors = sum(&LongLived::descriptors);
  report_.pages = sum(&LongLived::pages);
}

}  // namespace Zorbe::Test::Chaos
