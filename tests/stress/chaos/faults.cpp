// SPDX-License-Identifier: MIT
#include "stress/chaos/faults.h"

#include <filesystem>
#include <utility>

namespace Zorbe::Test::Chaos {
namespace {

constexpr unsigned kMostFaults = 4;
constexpr unsigned kMostPublications = 30;
constexpr unsigned kMostMillisecondsBetween = 3;
constexpr unsigned kMostMillisecondsStopped = 60;
constexpr size_t kKeptLines = 40;

}  // namespace

const Faults::Kind Faults::kKinds[] = {
    {"reader killed", 36, &Faults::killReader},
    {"writer killed", 14, &Faults::killWriter},
    {"reader restarted", 6, &Faults::restartReader},
    {"writer restarted", 4, &Faults::restartWriter},
    {"reader stopped", 8, &Faults::stopReader},
    {"reader continued", 8, &Faults::continueReader},
    {"writer stopped", 6, &Faults::stopWriter},
    {"competitor started", 4, &Faults::startCompetitor},
    {"competitor killed", 3, &Faults::killCompetitor},
    {"directory removed", 4, &Faults::removeDirectory},
};

Faults::Faults(Processes& processes, std::string directory, uint64_t seed, Report& report)
    : processes_(processes), directory_(std::move(directory)), random_(seed), report_(report) {}

void Faults::burst(Span span) {
  sparingWriter_ = span.sparingWriter;
  for (unsigned left = span.single ? 1 : 1 + random_.below(kMostFaults); left > 0; --left) {
    processes_.publish(1 + random_.below(kMostPublications));
    inject();
    pause(kMostMillisecondsBetween);
  }
  endStopOfWriter();
}

// Not every fault is possible at any time.
void Faults::inject() {
  for (;;) {
    const Kind& kind = draw();
    if (Member* const hit = (this->*kind.inject)()) return note(kind.name, *hit);
  }
}

const Faults::Kind& Faults::draw() {
  unsigned sum = 0;
  for (const Kind& kind : kKinds) sum += kind.weight;
  unsigned drawn = random_.below(sum);
  const Kind* kind = kKinds;
  while (drawn >= kind->weight) drawn -= kind++->weight;
  return *kind;
}

void Faults::note(const char* kind, const Member& hit) {
  ++report_.faults;
  ++report_.faultsByKind[kind];
  history_.push_back(std::string(kind) + ": " + hit.name());
  if (history_.size() > kKeptLines) history_.pop_front();
}

std::string Faults::history() const {
  std::string text;
  for (const std::string& line : history_) text += line + "\n";
  return text;
}

void Faults::pause(unsigned mostMilliseconds) {
  const std::chrono::microseconds drawn(random_.below(mostMilliseconds * 1000 + 1));
  processes_.await(Clock::now() + drawn, [] { return false; });
}

// Killed now and then instead of continued.
void Faults::endStopOfWriter() {
  for (Member* member : {&processes_.candidate(), &processes_.competitor()}) {
    if (!member->isStopped()) continue;
    pause(kMostMillisecondsStopped);
    if (!sparingWriter_ && random_.percent(25)) {
      kill(*member);
      member->start();
      note("writer killed while stopped", *member);
    } else {
      member->resume();
      note("writer continued", *member);
    }
  }
}

void Faults::kill(Member& member) {
  member.kill();
  ++report_.kills;
}

Member* Faults::pickReader(unsigned first, bool (*fits)(const Member&)) {
  std::vector<Member*> fitting;
  for (size_t i = first; i < processes_.readers().size(); ++i) {
    if (fits(processes_.readers()[i])) fitting.push_back(&processes_.readers()[i]);
  }
  return fitting.empty() ? nullptr : fitting[random_.below(fitting.size())];
}

Member* Faults::pickWriter() {
  return sparingWriter_ ? nullptr : &processes_.expectedWriter();
}

Member* Faults::killReader() {
  Member* const reader =
      pickReader(processes_.longLivedReaders(), [](const Member&) { return true; });
  kill(*reader);
  reader->start();
  return reader;
}

Member* Faults::killWriter() {
  Member* const writer = pickWriter();
  if (!writer) return nullptr;
  kill(*writer);
  writer->start();
  return writer;
}

Member* Faults::restartReader() {
  Member* const reader = pickReader(processes_.longLivedReaders(),
                                    [](const Member& member) { return member.isAwake(); });
  if (!reader) return nullptr;
  reader->leave();
  reader->start();
  return reader;
}

Member* Faults::restartWriter() {
  Member* const writer = pickWriter();
  if (!writer || writer->isStopped()) return nullptr;
  writer->leave();
  writer->start();
  return writer;
}

Member* Faults::stopReader() {
  unsigned stopped = 0;
  for (const Member& reader : processes_.readers()) stopped += reader.isStopped() ? 1 : 0;
  if (stopped >= processes_.readers().size() / 3) return nullptr;
  Member* const reader = pickReader(0, [](const Member& member) { return member.isAwake(); });
  reader->stop();
  return reader;
}

Member* Faults::continueReader() {
  Member* const reader = pickReader(0, [](const Member& member) { return member.isStopped(); });
  if (reader) reader->resume();
  return reader;
}

Member* Faults::stopWriter() {
  Member& writer = processes_.expectedWriter();
  if (writer.isStopped()) return nullptr;
  writer.stop();
  return &writer;
}

Member* Faults::startCompetitor() {
  Member& competitor = processes_.competitor();
  if (competitor.isAlive()) return nullptr;
  competitor.start();
  return &competitor;
}

Member* Faults::killCompetitor() {
  Member& competitor = processes_.competitor();
  if (!competitor.isAlive() || (sparingWriter_ && &competitor == processes_.writer()))
    return nullptr;
  kill(competitor);
  return &competitor;
}

// The writer may create it again while it is being removed.
Member* Faults::removeDirectory() {
  processes_.shared().removed = true;
  std::error_code interrupted;
  std::filesystem::remove_all(directory_, interrupted);
  return &processes_.expectedWriter();
}

}  // namespace Zorbe::Test::Chaos
