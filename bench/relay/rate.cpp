// SPDX-License-Identifier: MIT
#include "relay/bare.h"
#include "relay/chain.h"
#include "relay/measurements.h"

namespace Bench {

namespace {

constexpr uint64_t kRecords = 100'000;

// Thousand changes a second.
Subject rateOf(const std::string& name, uint64_t changes, const std::function<void()>& sendAll) {
  return {name, [=] {
            const double start = nanoseconds();
            sendAll();
            return std::vector{static_cast<double>(changes) * 1e6 / (nanoseconds() - start)};
          }};
}

}  // namespace

void measureRate(Results& results) {
  const auto changes = static_cast<uint64_t>(results.size(400'000, 200'000));
  const std::string unit = "thousand changes a second";
  const Hosts hosts(1);
  Chain chain(hosts, kRecords, 1);
  chain.publishAll();
  chain.mirrorAll();
  BareClient scripts(hosts.server(), BareClient::Form::kScript);
  BareClient commands(hosts.server(), BareClient::Form::kCommands);
  const auto outcomes =
      compare({rateOf("the same EVALSHA", changes, [&] { scripts.send(changes); }),
               rateOf("XADD and HSET", changes, [&] { commands.send(changes); }),
               rateOf("zorbe-relay", changes, [&] { chain.stream(changes); })},
              results.size(10, 3));
  const std::string load = "batches of 1,000";
  results.addMedians("relay-rate", load, unit, {outcomes[0], outcomes[1]});
  const Outcome& relay = outcomes[2];
  results.add({"relay-rate", relay.name, load, unit, relay.median, outcomes[0].name,
               relay.medianRatio, ">= 0.6"});
  results.add({"relay-rate", relay.name, "absolute", unit, relay.median, "", {}, ">= 150"});
}

}  // namespace Bench
