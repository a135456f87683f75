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
    const Kind kind = i % 2 == 0 ? Kind::kOwnLoop : Kind::kProcessLoop;
    readers_.emplace_back(
        "reader " + std::to_string(i + 1), shared_->processes.at(i),
        [=](Channel& parent, ProcessState& state) { runReader(parent, state, kind, own); });
  }
  for (const char* name : {"candidate", "competitor"}) {
    const bool isFirst = candidates_.empty();
    const bool isOfCompetitor = flaw == Flaw::kIgnoresTheLock;
    const Flaw own = isFirst == isOfCompetitor ? Flaw::kNone : flaw;
    const Kind kind = isFirst ? Kind::kOwnLoop : Kind::kProcessLoop;
    candidates_.emplace_back(name, shared_->processes.at(readerCount + candidates_.size()),
                             [=](Channel& parent, ProcessState& state) {
                               runCandidate(parent, *shared_, state, oraclePath, kind, own);
                             });
  }
}

Member* Processes::writer() {
  for (Member& member : candidates_) {
    if (member.isAlive() && member.state().writing) return &member;
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

bool Processes::isBehind(Member& reader, const Probe& probe) {
  const ProcessState& state = reader.state();
  return !state.attached || state.incarnation != probe.info().incarnation ||
         state.position != probe.info().published || state.digest != probe.digest();
}

bool Processes::isConverged(const Probe& probe) {
  Member* const present = writer();
  if (present == nullptr || present->state().answered != request_) return false;
  return std::none_of(readers_.begin(), readers_.end(),
                      [&](Member& reader) { return reader.isAwake() && isBehind(reader, probe); });
}

std::string Processes::describe(const Probe& probe) {
  Member* const present = writer();
  if (present == nullptr) return "there is no writer";
  const auto position = [](uint64_t incarnation, uint64_t sequence) {
    return std::to_string(incarnation) + "/" + std::to_string(sequence);
  };
  std::string text = present->name() + " is at " +
                     position(probe.info().incarnation, probe.info().published) +
                     (present->state().answered == request_ ? "" : ", has not answered") +
                     (probe.lack().empty() ? "" : ", " + probe.lack());
  for (Member& reader : readers_) {
    const ProcessState& state = reader.state();
    if (!reader.isAwake() || !isBehind(reader, probe)) continue;
    text += "; " + reader.name() + " is at " + position(state.incarnation, state.position) +
            (state.attached ? ", attached" : ", not attached") +
            (state.digest == probe.digest() ? "" : ", its copy differs");
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
