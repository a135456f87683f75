// SPDX-License-Identifier: MIT
#include "stress/relay/events.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Zorbe::Test::RelayChaos {
namespace {

constexpr unsigned kFewestEvents = 2;
constexpr unsigned kMostEvents = 7;
constexpr unsigned kMostMillisecondsBetween = 300;
constexpr unsigned kMostMillisecondsOfOutage = 4000;
constexpr size_t kKeptLines = 40;

}  // namespace

Events::Events(Hosts& hosts, Random& random, const std::vector<std::string>& without)
    : hosts_(hosts), random_(random), ofHosts_(hosts, random), ofServer_(hosts, random) {
  std::set<std::string> unknown(without.begin(), without.end());
  for (const auto& events : {ofHosts_.all(), ofServer_.all()}) {
    for (const Event& event : events) {
      unknown.erase(event.name);
      if (std::count(without.begin(), without.end(), event.name) == 0) kinds_.push_back(event);
    }
  }
  if (!unknown.empty()) throw Failure("no such kind of event: " + *unknown.begin());
  if (kinds_.empty()) throw Failure("no kind of event is left");
}

void Events::burst(unsigned round) {
  round_ = round;
  hosts_.shared().isWriting = true;
  for (unsigned left = kFewestEvents + random_.below(kMostEvents - kFewestEvents + 1); left > 0;
       --left) {
    addNext();
    pause(kMostMillisecondsBetween);
  }
  if (isWithoutPublisher()) pause(kMostMillisecondsOfOutage);
}

// Mirrors are alone with what the server has: long enough for them to take it all.
bool Events::isWithoutPublisher() const {
  const std::list<Process>& publishers = hosts_.publishers().all();
  return std::none_of(publishers.begin(), publishers.end(),
                      [](const Process& publisher) { return publisher.isAwake(); });
}

void Events::pause(unsigned mostMilliseconds) {
  const std::chrono::milliseconds drawn(random_.below(mostMilliseconds));
  hosts_.await(Clock::now() + drawn, [] { return false; });
}

// Not every one is possible at any time.
void Events::addNext() {
  for (;;) {
    const Event& event = draw();
    const std::string hit = event.happen();
    if (hit.empty()) continue;
    ++count_;
    ++byKind_[event.name];
    const std::chrono::duration<double> now = Clock::now().time_since_epoch();
    history_.push_back(std::to_string(now.count()) + " round " + std::to_string(round_) + ": " +
                       event.name + ": " + hit);
    if (history_.size() > kKeptLines) history_.pop_front();
    return;
  }
}

const Event& Events::draw() {
  if (remaining_.empty()) {
    for (const Event& kind : kinds_) remaining_.push_back(&kind);
  }
  std::swap(remaining_[random_.below(remaining_.size())], remaining_.back());
  const Event* const drawn = remaining_.back();
  remaining_.pop_back();
  return *drawn;
}

std::string Events::history() const {
  std::string text;
  for (const std::string& line : history_) text += line + "\n";
  return text;
}

}  // namespace Zorbe::Test::RelayChaos
