// SPDX-License-Identifier: MIT
#include "relay/chain.h"
#include "relay/measurements.h"

namespace Bench {

namespace {

struct Transfer {
  double sending = 0;    // nanoseconds
  double receiving = 0;  // nanoseconds
  double memory = 0;     // bytes that the mirror needs for it
  RelayTime sendingTime;
  RelayTime receivingTime;
};

Transfer transfer(uint64_t records) {
  auto* const outcome = shared<Transfer>();
  runApart([&] {
    const Hosts hosts(1);
    Chain chain(hosts, records, 1);
    const double start = nanoseconds();
    chain.publishAll();
    const double sent = nanoseconds();
    const RelayTime timeOfSending = chain.processorTime();
    chain.mirrorAll();
    *outcome = {sent - start, nanoseconds() - sent, chain.mirror().memory, timeOfSending,
                chain.processorTime() - timeOfSending};
  });
  return *outcome;
}

}  // namespace

void measureTransfer(Results& results) {
  const auto records = static_cast<uint64_t>(results.size(1'000'000, 100'000));
  const std::string load = results.quick() ? "100,000 records" : "1,000,000 records";
  std::vector<Transfer> transfers;
  for (int block = 0; block < results.size(3, 2); ++block) transfers.push_back(transfer(records));
  const auto add = [&](const char* subject, const char* unit, double units,
                       const std::function<double(const Transfer&)>& figure) {
    std::vector<double> figures;
    for (const Transfer& each : transfers) figures.push_back(figure(each) / units);
    results.add({"relay-transfer", subject, load, unit, spreadOf(figures), "", {}, ""});
  };
  const auto each = static_cast<double>(records);
  add("table to server", "ns", 1, [](const Transfer& t) { return t.sending; });
  add("server to mirror", "ns", 1, [](const Transfer& t) { return t.receiving; });
  add("server's CPU, from the publisher", "ns a record", each,
      [](const Transfer& t) { return t.sendingTime.server; });
  add("server's CPU, to the mirror", "ns a record", each,
      [](const Transfer& t) { return t.receivingTime.server; });
  add("mirror's CPU", "ns a record", each,
      [](const Transfer& t) { return t.receivingTime.mirror; });
  add("mirror's memory", "bytes a record", each, [](const Transfer& t) { return t.memory; });
}

}  // namespace Bench
