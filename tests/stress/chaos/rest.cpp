// SPDX-License-Identifier: MIT
#include "stress/chaos/rest.h"

#include <algorithm>

#include "support/sanitized.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr unsigned restsUntilWarm = 10;

}  // namespace

Rest::Rest(Crew& crew, std::chrono::seconds patience, Report& report)
    : crew_(crew), patience_(patience), report_(report), elders_(crew.elders()) {}

void Rest::survey(bool warm) {
  for (size_t i = 0; i < elders_.size(); ++i) {
    Member& reader = crew_.readers()[i];
    if (reader.isAwake()) surveyElder(reader, elders_[i], warm);
  }
  if (Member* const writer = crew_.writer()) surveyWriter(*writer);
  sumUp();
}

void Rest::surveyElder(Member& reader, Elder& elder, bool warm) {
  const pid_t pid = reader.pid();
  const auto count = [pid] { return long{descriptorsOf(pid)}; };
  surveyDescriptors(reader, elder.descriptors, count);
  if (!warm) return;
  elder.pages.note(residentPagesOf(pid));
  requireFlat(reader, elder.pages);
}

// Between its kills: what it has besides its connections.
void Rest::surveyWriter(Member& writer) {
  const pid_t pid = writer.pid();
  if (std::exchange(writer_, pid) != pid) {
    writerCourse_ = {};
    writerRests_ = 0;
  }
  report_.longestWriter = std::max(report_.longestWriter, ++writerRests_);
  Place& place = writer.place();
  const auto count = [&] { return long{descriptorsOf(pid)} - place.connections; };
  surveyDescriptors(writer, writerCourse_.descriptors, count);
  if (writerRests_ < restsUntilWarm) return;
  writerCourse_.pages.note(residentPagesOf(pid));
  requireFlat(writer, writerCourse_.pages);
  report_.writerGrowth = std::max(report_.writerGrowth, writerCourse_.pages.growth());
}

void Rest::surveyDescriptors(Member& member, Course& course, const std::function<long()>& count) {
  if (course.first) require(member, *course.first, count);
  course.note(course.first ? *course.first : firstCount(member, count));
}

// What all later ones are held against. Counted while the process sleeps: then it has nothing
// open in passing, and has told of all its connections.
long Rest::firstCount(Member& member, const std::function<long()>& count) {
  long first = 0;
  const auto isSteady = [&, pid = member.pid()] {
    const auto sleep = sleepOf(pid);
    first = count();
    return sleep && sleepOf(pid) == sleep;
  };
  if (crew_.await(Clock::now() + patience_, isSteady)) return first;
  throw Failure(member.name() + " does not come to rest");
}

// Somebody may be in the middle of something: then it is over soon.
void Rest::require(Member& member, long expected, const std::function<long()>& count) {
  if (crew_.await(Clock::now() + patience_, [&] { return count() == expected; })) return;
  throw Failure(member.name() + " has " + std::to_string(count()) + " descriptors instead of " +
                std::to_string(expected));
}

// Sanitizers keep what was freed.
void Rest::requireFlat(const Member& member, const Course& pages) {
  if (isSanitized || pages.growth() <= pagesOfGrowth) return;
  throw Failure(member.name() + " has grown by " + std::to_string(pages.growth()) +
                " pages of memory");
}

void Rest::sumUp() {
  const auto sum = [this](Course Elder::*part) {
    Course all;
    for (const Elder& elder : elders_) {
      const Course& one = elder.*part;
      if (!one.first) continue;
      all.first = all.first.value_or(0) + *one.first;
      all.last += one.last;
    }
    return all;
  };
  report_.descriptors = sum(&Elder::descriptors);
  report_.pages = sum(&Elder::pages);
}

}  // namespace Zorbe::Test::Chaos
