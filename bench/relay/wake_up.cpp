// SPDX-License-Identifier: MIT
#include <atomic>
#include <cstring>

#include "relay/chain.h"
#include "relay/measurements.h"

namespace Bench {

namespace {

using Zorbe::Table::Kind;
using Zorbe::Table::LoopReader;

constexpr const char* kStream = "bare";

// The highest number that a follower in another process has seen, and when: while it reads all
// records, older ones follow newer ones.
struct Sighting {
  std::atomic<uint64_t> number{0};
  std::atomic<double> at{0};

  void note(uint64_t seen) {
    if (seen <= number) return;
    at = nanoseconds();
    number = seen;
  }
};

// Follows the mirrored table.
[[noreturn]] void followTable(const Zorbe::Table::Options& options, Sighting& sighting) {
  Brask::Linux::EventLoop loop;
  LoopReader<uint64_t, Value> reader(kTable, options);
  reader.onReady([&] {
    while (const auto change = reader.next()) {
      if (change->kind == Kind::put) sighting.note(change->value.words[0]);
    }
  });
  for (;;) loop.turn(-1);
}

// Follows a stream, each entry of which has a value.
[[noreturn]] void followStream(const Hosts& hosts, Sighting& sighting) {
  const RedisConnection connection = hosts.connect();
  for (std::string last = "0";;) {
    const RedisReply reply =
        ask(connection, {"XREAD", "COUNT", "32", "BLOCK", "1000", "STREAMS", kStream, last});
    if (reply->type != REDIS_REPLY_ARRAY) continue;
    const redisReply& entries = *reply->element[0]->element[1];
    const redisReply& entry = *entries.element[entries.elements - 1];
    Value value;
    std::memcpy(&value, entry.element[1]->element[1]->str, sizeof value);
    last = entry.element[0]->str;
    sighting.note(value.words[0]);
  }
}

// A process that follows, until this object ends.
class Follower {
 public:
  explicit Follower(const std::function<void(Sighting&)>& follow) : sighting_(shared<Sighting>()) {
    Sighting& sighting = *sighting_;
    process_.start(-1, [follow, &sighting] { follow(sighting); });
    process_.release();
  }

  /// When it has seen a number; meanwhile `work` is done, and others get this CPU.
  double seen(uint64_t number, const std::function<void()>& work) const {
    waitUntil("the follower", [&] {
      work();
      return sighting_->number == number;
    });
    return sighting_->at;
  }

 private:
  Sighting* sighting_;
  Children process_;
};

// Each call is a round; a sample is the time until the follower has it.
Subject roundsOf(const std::string& name, int rounds, const std::function<double()>& round) {
  return {name, [=] {
            std::vector<double> times;
            for (int each = 0; each < rounds; ++each) {
              const double start = nanoseconds();
              times.push_back(round() - start);
            }
            return times;
          }};
}

void addEntry(const RedisConnection& connection, uint64_t number) {
  const Value value{{number}};
  const std::string bytes(reinterpret_cast<const char*>(&value), sizeof value);
  ask(connection, {"XADD", kStream, "MAXLEN", "~", "1000", "*", "value", bytes});
}

}  // namespace

void measureWakeUp(Results& results, const std::string& placement, double delay) {
  const int rounds = results.size(200, 100);
  const Hosts hosts(1, delay);
  const Follower ofTable([&](Sighting& sighting) { followTable(hosts.mirrored(0), sighting); });
  const Follower ofStream([&](Sighting& sighting) { followStream(hosts, sighting); });
  const RedisConnection connection = hosts.connect();
  Chain chain(hosts, 1000, 1);
  chain.publishAll();
  chain.mirrorAll();
  uint64_t entries = 0;
  const auto outcomes =
      compare({roundsOf("XADD and XREAD", rounds,
                        [&] {
                          addEntry(connection, ++entries);
                          return ofStream.seen(entries, [] {});
                        }),
               roundsOf("zorbe-relay", rounds,
                        [&] {
                          chain.put(1);
                          return ofTable.seen(chain.number() - 1, [&] { chain.turn(0); });
                        })},
              results.size(100, 10));
  results.addMedians("relay-wake", placement, "ns", outcomes, "<= 1.3");
  results.addP99s("relay-wake-p99", placement, "ns", outcomes);
}

}  // namespace Bench
