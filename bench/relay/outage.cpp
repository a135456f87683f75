// SPDX-License-Identifier: MIT
#include <signal.h>

#include "relay/chain.h"
#include "relay/measurements.h"

namespace Bench {

namespace {

using Zorbe::Table::LoopReader;

constexpr uint64_t kRecords = 100'000;
constexpr double kChangesOfSecond = 20'000;

// Puts changes at a rate.
class Load {
 public:
  explicit Load(Chain& chain) : chain_(chain) {}

  void goOn() {
    const double due = (nanoseconds() - start_) / 1e9 * kChangesOfSecond;
    if (const auto changes = static_cast<uint64_t>(due) - done_; changes > 0) {
      chain_.put(changes);
      done_ += changes;
    }
  }

 private:
  Chain& chain_;
  double start_ = nanoseconds();
  uint64_t done_ = 0;
};

// Whether a mirrored table has everything that was put before a moment.
class CatchingUp {
 public:
  CatchingUp(const LoopReader<uint64_t, Value>& reader, uint64_t number)
      : view_(reader.view()), first_(number - kRecords) {}

  // Values of a key only grow: one that was seen to be new enough is not looked at again.
  bool isOver() {
    for (; checked_ < kRecords; ++checked_) {
      const uint64_t number = first_ + checked_;
      const auto value = view_.get(keyOf(number % kRecords));
      if (!value || value->words[0] < number) return false;
    }
    return true;
  }

 private:
  Zorbe::Table::View<uint64_t, Value> view_;
  uint64_t first_;
  uint64_t checked_ = 0;
};

struct Outage {
  const char* name;
  void (*begin)(RedisServer& server);
  void (*end)(RedisServer& server);
};

void signal(const RedisServer& server, int number) {
  check(::kill(server.pid(), number), "kill()");
}

const Outage kOutages[] = {
    {"server stopped", [](RedisServer& server) { signal(server, SIGSTOP); },
     [](RedisServer& server) { signal(server, SIGCONT); }},
    {"server killed, empty afterwards", [](RedisServer& server) { server.kill(); },
     [](RedisServer& server) { server.start(); }},
};

// Nanoseconds from the server's return until the mirror has what was put before it.
double measure(const Outage& outage, double seconds) {
  Hosts hosts(1);
  Chain chain(hosts, kRecords, 1);
  chain.publishAll();
  chain.mirrorAll();
  const LoopReader<uint64_t, Value> reader(kTable, hosts.mirrored(0));
  outage.begin(hosts.server());
  const double start = nanoseconds();
  Load load(chain);
  chain.turnUntil("the end of the outage", [&] {
    load.goOn();
    return nanoseconds() > start + seconds * 1e9;
  });
  outage.end(hosts.server());
  const double back = nanoseconds();
  CatchingUp catchingUp(reader, chain.number());
  chain.turnUntil("the mirror", [&] {
    load.goOn();
    return catchingUp.isOver();
  });
  return nanoseconds() - back;
}

}  // namespace

void measureOutages(Results& results) {
  const int seconds = results.size(60, 5);
  auto* const time = shared<double>();
  for (const Outage& outage : kOutages) {
    runApart([&] { *time = measure(outage, seconds); });
    results.add({"relay-outage",
                 outage.name,
                 "after " + std::to_string(seconds) + " s",
                 "ns",
                 {*time, *time, *time},
                 "",
                 {},
                 ""});
  }
}

}  // namespace Bench
