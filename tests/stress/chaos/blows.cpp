// SPDX-License-Identifier: MIT
#include "stress/chaos/blows.h"

#include <brask/linux/stream_debug_handler.h>
#include <zorbe/fenix_file.h>

#include <filesystem>
#include <iostream>
#include <utility>

namespace Zorbe::Test::Chaos {
namespace {

constexpr unsigned mostBlows = 4;
constexpr unsigned mostPublications = 30;
constexpr unsigned mostMillisecondsBetween = 3;
constexpr unsigned mostMillisecondsStopped = 60;
constexpr size_t keptLines = 40;

}  // namespace

const Blows::Kind Blows::kinds[] = {
    {"reader killed", 36, &Blows::killReader},
    {"writer killed", 14, &Blows::killWriter},
    {"reader restarted", 6, &Blows::restartReader},
    {"writer restarted", 4, &Blows::restartWriter},
    {"reader stopped", 8, &Blows::stopReader},
    {"reader continued", 8, &Blows::continueReader},
    {"writer stopped", 6, &Blows::stopWriter},
    {"competitor started", 4, &Blows::startCompetitor},
    {"competitor killed", 3, &Blows::killCompetitor},
    {"directory removed", 4, &Blows::removeDirectory},
};

Blows::Blows(Crew& crew, std::string directory, uint64_t seed, Report& report)
    : crew_(crew), directory_(std::move(directory)), random_(seed), report_(report) {}

void Blows::burst(Span span) {
  sparingWriter_ = span.sparingWriter;
  for (unsigned left = span.single ? 1 : 1 + random_.below(mostBlows); left > 0; --left) {
    crew_.publish(1 + random_.below(mostPublications));
    strike();
    pause(mostMillisecondsBetween);
  }
  endStopOfWriter();
}

// Not every blow is possible at any time.
void Blows::strike() {
  for (;;) {
    const Kind& kind = draw();
    if (Member* const hit = (this->*kind.strike)()) return note(kind.name, *hit);
  }
}

const Blows::Kind& Blows::draw() {
  unsigned sum = 0;
  for (const Kind& kind : kinds) sum += kind.weight;
  unsigned drawn = random_.below(sum);
  const Kind* kind = kinds;
  while (drawn >= kind->weight) drawn -= kind++->weight;
  return *kind;
}

void Blows::note(const char* kind, const Member& hit) {
  ++report_.blows;
  ++report_.blowsByKind[kind];
  history_.push_back(std::string(kind) + ": " + hit.name());
  if (history_.size() > keptLines) history_.pop_front();
}

std::string Blows::history() const {
  std::string text;
  for (const std::string& line : history_) text += line + "\n";
  return text;
}

void Blows::pause(unsigned mostMilliseconds) {
  const std::chrono::microseconds drawn(random_.below(mostMilliseconds * 1000 + 1));
  crew_.await(Clock::now() + drawn, [] { return false; });
}

// Killed now and then instead of continued.
void Blows::endStopOfWriter() {
  for (Member* member : {&crew_.candidate(), &crew_.competitor()}) {
    if (!member->isStopped()) continue;
    pause(mostMillisecondsStopped);
    if (!sparingWriter_ && random_.percent(25)) {
      kill(*member);
      member->start();
      note("writer killed while stopped", *member);
    } else {
      member->goOn();
      note("writer continued", *member);
    }
  }
}

void Blows::kill(Member& member) {
  member.kill();
  ++report_.kills;
}

Member* Blows::pickReader(unsigned first, bool (*fits)(const Member&)) {
  std::vector<Member*> fitting;
  for (size_t i = first; i < crew_.readers().size(); ++i) {
    if (fits(crew_.readers()[i])) fitting.push_back(&crew_.readers()[i]);
  }
  return fitting.empty() ? nullptr : fitting[random_.below(fitting.size())];
}

Member* Blows::pickWriter() {
  return sparingWriter_ ? nullptr : &crew_.writerToBe();
}

Member* Blows::killReader() {
  Member* const reader = pickReader(crew_.elders(), [](const Member&) { return true; });
  kill(*reader);
  reader->start();
  return reader;
}

Member* Blows::killWriter() {
  Member* const writer = pickWriter();
  if (!writer) return nullptr;
  kill(*writer);
  writer->start();
  return writer;
}

Member* Blows::restartReader() {
  Member* const reader =
      pickReader(crew_.elders(), [](const Member& member) { return member.isAwake(); });
  if (!reader) return nullptr;
  reader->leave();
  reader->start();
  return reader;
}

Member* Blows::restartWriter() {
  Member* const writer = pickWriter();
  if (!writer || writer->isStopped()) return nullptr;
  writer->leave();
  writer->start();
  return writer;
}

Member* Blows::stopReader() {
  unsigned stopped = 0;
  for (const Member& reader : crew_.readers()) stopped += reader.isStopped() ? 1 : 0;
  if (stopped >= crew_.readers().size() / 3) return nullptr;
  Member* const reader = pickReader(0, [](const Member& member) { return member.isAwake(); });
  reader->stop();
  return reader;
}

Member* Blows::continueReader() {
  Member* const reader = pickReader(0, [](const Member& member) { return member.isStopped(); });
  if (reader) reader->goOn();
  return reader;
}

Member* Blows::stopWriter() {
  Member& writer = crew_.writerToBe();
  if (writer.isStopped()) return nullptr;
  writer.stop();
  return &writer;
}

Member* Blows::startCompetitor() {
  Member& competitor = crew_.competitor();
  if (competitor.isAlive()) return nullptr;
  competitor.start();
  return &competitor;
}

Member* Blows::killCompetitor() {
  Member& competitor = crew_.competitor();
  if (!competitor.isAlive() || (sparingWriter_ && &competitor == crew_.writer())) return nullptr;
  kill(competitor);
  return &competitor;
}

// Writer and readers make it again while it is being removed, which is what they are for.
Member* Blows::removeDirectory() {
  std::error_code interrupted;
  std::filesystem::remove_all(directory_, interrupted);
  return &crew_.writerToBe();
}

bool Blows::isInPlace(uint32_t fenix) const {
  Brask::Linux::StreamDebugHandler log(std::cerr, -1);
  return FenixFile::read(log, directory_) == fenix &&
         std::filesystem::exists(directory_ + "/slots");
}

}  // namespace Zorbe::Test::Chaos
