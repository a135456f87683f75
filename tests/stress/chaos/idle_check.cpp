// SPDX-License-Identifier: MIT
#include "stress/chaos/idle_check.h"

#include <algorithm>

#include "support/census.h"
#include "support/sanitized.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr unsigned kChecksUntilWarm = 5;

long descriptorsOf(pid_t pid) {
  return static_cast<long>(Census::take(std::to_string(pid)).count());
}

}  // namespace

IdleCheck::IdleCheck(Processes& processes, Probe& probe, std::chrono::seconds timeout,
                     Report& report)
    : processes_(processes),
      probe_(probe),
      timeout_(timeout),
      report_(report),
      longLived_(processes.longLivedReaders()) {}

void IdleCheck::check(bool warm) {
  for (size_t i = 0; i < longLived_.size(); ++i) {
    Member& reader = processes_.readers()[i];
    if (reader.isAwake()) checkLongLived(reader, longLived_[i], warm);
  }
  sumUp();
}

void IdleCheck::checkLongLived(Member& reader, LongLived& usage, bool warm) {
  const pid_t pid = reader.pid();
  const auto count = [pid] { return descriptorsOf(pid); };
  checkDescriptors(reader, usage.descriptors, count);
  if (!warm) return;
  usage.pages.note(residentPagesOf(pid));
  requireFlat(reader, usage.pages);
}

// Also between its kills: what it has besides its connections.
void IdleCheck::checkWriter() {
  Member& writer = *processes_.writer();
  if (!processes_.await(Clock::now() + timeout_, [this] { return awake().empty(); }))
    throw Failure(writer.name() + " does not know that readers sleep:" + awake());
  const pid_t pid = writer.pid();
  if (std::exchange(writer_, pid) != pid) {
    writerCounts_ = {};
    writerChecks_ = 0;
  }
  report_.longestWriter = std::max(report_.longestWriter, ++writerChecks_);
  const auto count = [&] { return descriptorsOf(pid) - connections(); };
  checkDescriptors(writer, writerCounts_.descriptors, count);
  if (writerChecks_ < kChecksUntilWarm) return;
  writerCounts_.pages.note(residentPagesOf(pid));
  requireFlat(writer, writerCounts_.pages);
  report_.writerGrowth = std::max(report_.writerGrowth, writerCounts_.pages.growth());
}

// The running readers of which the status does not have that they sleep and have everything.
std::string IdleCheck::awake() {
  const std::optional<Table::Status> status = probe_.status();
  if (!status) return " there is no status";
  std::string names;
  for (Member& reader : processes_.readers()) {
    if (!reader.isAwake()) continue;
    const auto isItsOwn = [&](const Table::Peer& peer) {
      return static_cast<pid_t>(peer.pid) == reader.pid();
    };
    const auto peer = std::find_if(status->peers.begin(), status->peers.end(), isItsOwn);
    if (peer == status->peers.end()) {
      names += " " + reader.name() + " is missing;";
    } else if (peer->state != Table::PeerState::asleep ||
               peer->reported != probe_.info().published) {
      names += " " + reader.name() + " has reported " + std::to_string(peer->reported) + " of " +
               std::to_string(probe_.info().published) + ";";
    }
  }
  return names;
}

long IdleCheck::connections() {
  const std::optional<Table::Status> status = probe_.status();
  return status ? static_cast<long>(status->connections) : 0;
}

void IdleCheck::checkDescriptors(Member& member, Counts& counts,
                                 const std::function<long()>& count) {
  if (counts.first) require(member, *counts.first, count);
  counts.note(counts.first ? *counts.first : firstCount(member, count));
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
void IdleCheck::requireFlat(const Member& member, const Counts& pages) {
  if (kIsSanitized || pages.growth() <= kPagesOfGrowth) return;
  throw Failure(member.name() + " has grown by " + std::to_string(pages.growth()) +
                " pages of memory");
}

void IdleCheck::sumUp() {
  const auto sum = [this](Counts LongLived::*part) {
    Counts all;
    for (const LongLived& usage : longLived_) {
      const Counts& one = usage.*part;
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
