// SPDX-License-Identifier: MIT
#include "stress/relay/relay_run.h"

#include <algorithm>

#include "stress/relay/comparison.h"
#include "stress/relay/events.h"
#include "stress/relay/hosts.h"

namespace Zorbe::Test::RelayChaos {
namespace {

constexpr std::chrono::seconds kRestTimeout{20};
constexpr unsigned kMostMillisecondsOfWriting = 3000;

class RelayRun {
 public:
  RelayRun(const Settings& settings, const TestRoot& root, Report& report)
      : settings_(settings),
        report_(report),
        random_(settings.seed),
        hosts_(root, random_),
        tables_(hosts_),
        events_(hosts_, random_, settings.without) {}

  void run() {
    hosts_.server().start(Server::Memory::kEmpty);
    hosts_.shared().isWriting = true;
    hosts_.restore();
    becomeEqual();
    while (!isOver()) {
      events_.burst(++report_.rounds);
      hosts_.restore();
      writeOn();
      becomeEqual();
    }
    hosts_.leave();
  }

  void count() {
    report_.kills = events_.kills();
    report_.events = events_.count();
    report_.byKind = events_.byKind();
    report_.written = hosts_.shared().changes;
    report_.followed = hosts_.followed();
    report_.seconds = secondsSince(began_);
  }

  std::string trace() { return events_.history() + hosts_.logs(); }

 private:
  static double secondsSince(Clock::time_point when) {
    return std::chrono::duration<double>(Clock::now() - when).count();
  }

  bool isOver() const {
    if (settings_.rounds > 0) return report_.rounds >= settings_.rounds;
    return secondsSince(began_) >= settings_.seconds;
  }

  // Half of the time the writer goes on while everything recovers, over slow links perhaps.
  void writeOn() {
    if (random_.percent(50)) return;
    const std::chrono::milliseconds drawn(random_.below(kMostMillisecondsOfWriting));
    hosts_.await(Clock::now() + drawn, [] { return false; });
  }

  void becomeEqual() {
    hosts_.quicken();
    hosts_.shared().isWriting = false;
    const auto isAtRest = [&] { return hosts_.shared().isAtRest.load(); };
    hosts_.shared().isAtRest = false;
    if (!hosts_.await(Clock::now() + kRestTimeout, isAtRest)) throw Failure("the writer is silent");
    tables_.begin();
    const auto begin = Clock::now();
    if (!hosts_.await(begin + settings_.timeout, [&] { return isSettled(); })) {
      throw Failure("not equal after " + std::to_string(settings_.timeout.count()) + " s:" +
                    (tables_.areEqual() ? " several publishers, or none" : tables_.difference()));
    }
    hosts_.publishers().settle();
    report_.slowest = std::max(report_.slowest, secondsSince(begin));
  }

  // One publisher is left, and it is the one that the server knows.
  bool isSettled() {
    std::list<Process>& publishers = hosts_.publishers().all();
    if (publishers.size() != 1 || !tables_.areEqual()) return false;
    const auto pid = hosts_.server().ask({"HGET", keyOnServer("about"), "pid"});
    return pid == std::to_string(publishers.front().pid());
  }

  const Settings& settings_;
  Report& report_;
  Clock::time_point began_ = Clock::now();
  Random random_;
  Hosts hosts_;
  TableComparison tables_;
  Events events_;
};

}  // namespace

Report run(const Settings& settings) {
  Report report;
  const TestRoot root;
  RelayRun run(settings, root, report);
  try {
    run.run();
  } catch (const std::exception& failure) {
    report.failure = failure.what();
    report.trace = run.trace();
  }
  run.count();
  return report;
}

}  // namespace Zorbe::Test::RelayChaos
