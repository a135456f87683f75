// SPDX-License-Identifier: MIT
#include "stress/chaos/processes.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "stress/chaos/reader.h"
#include "stress/chaos/writer.h"

namespace Zorbe::Test::Chaos {
namespace {

// For conditions without a message: /proc, and files.
constexpr std::chrono::milliseconds kLongestWait{20};
constexpr unsigned kReadersPerLongLived = 5;

}  // namespace

Processes::Processes(unsigned readerCount, const std::string& oraclePath, Flaw flaw)
    : longLived_(1 + readerCount / kReadersPerLongLived) {
  for (unsigned i = 0; i < readerCount; ++i) {
    const Flaw own = i == 0 ? flaw : Flaw::kNone;
    readers_.emplace_back("reader " + std::to_string(i + 1), board_->places.at(i),
                          [own](Channel& parent, Place& place) { runReader(parent, place, own); });
  }
  for (const char* name : {"candidate", "competitor"}) {
    const bool isFirst = candidates_.empty();
    const bool isOfCandidate = flaw == Flaw::kWriterLeaks || flaw == Flaw::kStartsEmpty;
    const Flaw own = isFirst == isOfCandidate ? flaw : Flaw::kNone;
    candidates_.emplace_back(name, board_->places.at(readerCount + candidates_.size()),
                             [this, own, oraclePath](Channel& parent, Place& place) {
                               runCandidate(parent, *board_, place, oraclePath, own);
                             });
  }
}

Member* Processes::writer() {
  for (Member& member : candidates_) {
    if (member.isAlive() && member.place().writing) return &member;
  }
  return nullptr;
}

Member& Processes::expectedWriter() {
  Member* const present = writer();
  return present ? *present : candidate();
}

void Processes::publish(unsigned count) {
  const std::string order = "publish " + std::to_string(count) + " " + std::to_string(++request_);
  for (Member& member : candidates_) {
    if (member.isAwake()) member.channel().send(order);
  }
}

void Processes::forEach(const std::function<void(Member&)>& action) {
  std::for_each(readers_.begin(), readers_.end(), action);
  std::for_each(candidates_.begin(), candidates_.end(), action);
}

bool Processes::await(Clock::time_point deadline, const std::function<bool()>& condition) {
  for (;;) {
    forEach([](Member& member) { member.requireSanity(); });
    if (condition()) return true;
    if (Clock::now() >= deadline) return false;
    wait(deadline);
  }
}

void Processes::wait(Clock::time_point deadline) {
  std::vector<pollfd> channels;
  std::vector<Member*> owners;
  forEach([&](Member& member) {
    if (!member.isAlive()) return;
    channels.push_back({member.channel().fd(), POLLIN, 0});
    owners.push_back(&member);
  });
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  const auto most = std::clamp(left + std::chrono::milliseconds(1), {}, kLongestWait);
  const int ready = ::poll(channels.data(), channels.size(), static_cast<int>(most.count()));
  if (ready < 0 && errno != EINTR) throw Failure(std::string("poll: ") + std::strerror(errno));
  for (size_t i = 0; ready > 0 && i < channels.size(); ++i) {
    if (channels[i].revents != 0 && !owners[i]->channel().drain())
      throw Failure(owners[i]->name() + " has ended by itself\n" + owners[i]->log());
  }
}

bool Processes::isBehind(Member& reader, Place& writer) const {
  const Place& place = reader.place();
  return !place.attached || place.fenix != writer.fenix || place.sequence != writer.sequence ||
         place.reportedFenix != writer.fenix || place.reportedSequence != writer.sequence;
}

bool Processes::isConverged() {
  Member* const present = writer();
  if (present == nullptr || present->place().answered != request_) return false;
  return std::none_of(readers_.begin(), readers_.end(), [&](Member& reader) {
    return reader.isAwake() && isBehind(reader, present->place());
  });
}

std::string Processes::describe() {
  Member* const present = writer();
  if (present == nullptr) return "there is no writer";
  const auto position = [](uint32_t fenix, uint64_t sequence) {
    return std::to_string(fenix) + "/" + std::to_string(sequence);
  };
  const Place& writing = present->place();
  std::string text = present->name() + " is at " + position(writing.fenix, writing.sequence);
  for (Member& reader : readers_) {
    const Place& place = reader.place();
    if (!reader.isAwake() || !isBehind(reader, present->place())) continue;
    text += "; " + reader.name() + " is at " + position(place.fenix, place.sequence) +
            ", reported at " + position(place.reportedFenix, place.reportedSequence) +
            (place.attached ? ", attached" : ", not attached");
  }
  return text;
}

std::string Processes::logs() {
  std::string text;
  forEach([&](Member& member) {
    if (member.isAlive()) text += "---- log of " + member.name() + ":\n" + member.log();
  });
  return text;
}

}  // namespace Zorbe::Test::Chaos
