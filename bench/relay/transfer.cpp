// SPDX-License-Identifier: MIT
#include "relay/chain.h"
#include "relay/measurements.h"

namespace Bench {

namespace {

struct Transfer {
  double sending = 0;    // nanoseconds
  double receiving = 0;  // nanoseconds
  double memory = 0;     // bytes that the mirror needs for it
};

Transfer transfer(uint64_t records) {
  auto* const outcome = shared<Transfer>();
  runApart([&] {
    const Hosts hosts(1);
    Chain chain(hosts, records, 1);
    const double start = nanoseconds();
    chain.publishAll();
    const double sent = nanoseconds();
    chain.mirrorAll();
    *outcome = {sent - start, nanoseconds() - sent, chain.mirror().memory};
  });
  return *outcome;
}

}  // namespace

void measureTransfer(Results& results) {
  const auto records = static_cast<uint64_t>(results.size(1'000'000, 100'000));
  const std::string load = results.quick() ? "100,000 records" : "1,000,000 records";
  std::vector<double> sending;
  std::vector<double> receiving;
  std::vector<double> memory;
  for (int block = 0; block < results.size(5, 2); ++block) {
    const Transfer outcome = transfer(records);
    sending.push_back(outcome.sending);
    receiving.push_back(outcome.receiving);
    memory.push_back(outcome.memory / static_cast<double>(records));
  }
  results.add({"relay-transfer", "table to server", load, "ns", spreadOf(sending), "", {}, ""});
  results.add({"relay-transfer", "server to mirror", load, "ns", spreadOf(receiving), "", {}, ""});
  results.add({"relay-transfer",
               "mirror's own memory",
               load,
               "bytes a record",
               spreadOf(memory),
               "",
               {},
               ""});
}

}  // namespace Bench
