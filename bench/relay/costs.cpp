// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <stdexcept>

#include "format/format.h"
#include "relay/chain.h"
#include "relay/measurements.h"

namespace Bench {

namespace {

constexpr uint64_t kRecords = 100'000;

// What the server has counted since it was started.
struct Counts {
  double received = 0;  // bytes
  double sent = 0;      // bytes
  double commands = 0;
  double stream = 0;  // bytes of memory
  double hash = 0;    // bytes of memory
  double batches = 0;
};

// Commands that countsOf() sends.
constexpr double kQuestions = 4;

double factOf(const std::string& info, const std::string& name) {
  const size_t found = info.find("\n" + name + ":");
  if (found == std::string::npos) throw std::runtime_error("INFO has no " + name);
  return std::strtod(info.c_str() + found + name.size() + 2, nullptr);
}

double numberOf(const RedisConnection& server, const std::vector<std::string>& question) {
  return static_cast<double>(ask(server, question)->integer);
}

Counts countsOf(const RedisConnection& server) {
  const Zorbe::Relay::Keys keys("zorbe:", kTable);
  const std::string info = ask(server, {"INFO", "stats"})->str;
  return {factOf(info, "total_net_input_bytes"),
          factOf(info, "total_net_output_bytes"),
          factOf(info, "total_commands_processed"),
          numberOf(server, {"MEMORY", "USAGE", keys.changes, "SAMPLES", "0"}),
          numberOf(server, {"MEMORY", "USAGE", keys.records, "SAMPLES", "0"}),
          numberOf(server, {"XLEN", keys.changes})};
}

// What was used by so many changes.
struct Use {
  RelayTime time;
  Counts counts;
  double hashOfRecord = 0;
};

Use useOf(size_t mirrors, const std::function<void(Chain&)>& work) {
  auto* const use = shared<Use>();
  runApart([&] {
    const Hosts hosts(mirrors);
    Chain chain(hosts, kRecords, mirrors);
    chain.publishAll();
    chain.mirrorAll();
    const RedisConnection server = hosts.server().connect();
    const Counts before = countsOf(server);
    const RelayTime timeBefore = chain.processorTime();
    work(chain);
    use->time = chain.processorTime() - timeBefore;
    const Counts after = countsOf(server);
    use->counts = {after.received - before.received,
                   after.sent - before.sent,
                   after.commands - before.commands - kQuestions,
                   after.stream - before.stream,
                   after.hash - before.hash,
                   after.batches - before.batches};
    use->hashOfRecord = after.hash / double{kRecords};
  });
  return *use;
}

// The same work with no mirror and with several: a mirror's share is the difference.
class Comparison {
 public:
  Comparison(size_t mirrors, int blocks, double units, const std::function<void(Chain&)>& work)
      : mirrors_(static_cast<double>(mirrors)), units_(units) {
    for (int block = 0; block < blocks; ++block) {
      none_.push_back(useOf(0, work));
      several_.push_back(useOf(mirrors, work));
    }
  }

  using Figure = std::function<double(const Use&)>;

  Spread without(const Figure& figure) const { return spread(figure, none_, 0); }
  Spread with(const Figure& figure) const { return spread(figure, several_, 0); }
  Spread ofEach(const Figure& figure) const { return spread(figure, several_, mirrors_); }

  Spread sizeOfBatches() const {
    std::vector<double> sizes;
    for (const Use& use : several_) sizes.push_back(units_ / use.counts.batches);
    return spreadOf(sizes);
  }

 private:
  Spread spread(const Figure& figure, const std::vector<Use>& uses, double share) const {
    std::vector<double> figures;
    for (size_t each = 0; each < uses.size(); ++each) {
      const double base = share > 0 ? figure(none_[each]) : 0;
      figures.push_back((figure(uses[each]) - base) / units_ / (share > 0 ? share : 1));
    }
    return spreadOf(figures);
  }

  double mirrors_;
  double units_;
  std::vector<Use> none_;
  std::vector<Use> several_;
};

double serverTime(const Use& use) {
  return use.time.server;
}

void addChangeCosts(Results& results, const std::string& load, const Comparison& uses) {
  const auto add = [&](const char* group, const char* subject, const char* unit, Spread value) {
    results.add({group, subject, load, unit, value, "", {}, ""});
  };
  const char* const cpu = "ns a change";
  add("relay-cpu", "server, for the publisher", cpu, uses.without(serverTime));
  add("relay-cpu", "server, for each mirror", cpu, uses.ofEach(serverTime));
  add("relay-cpu", "publisher", cpu,
      uses.without([](const Use& use) { return use.time.publisher; }));
  add("relay-cpu", "mirror", cpu, uses.with([](const Use& use) { return use.time.mirror; }));
  const char* const bytes = "bytes a change";
  add("relay-bytes", "publisher to server", bytes,
      uses.without([](const Use& use) { return use.counts.received; }));
  add("relay-bytes", "server to each mirror", bytes,
      uses.ofEach([](const Use& use) { return use.counts.sent; }));
  add("relay-bytes", "each mirror to server", bytes,
      uses.ofEach([](const Use& use) { return use.counts.received; }));
  add("relay-bytes", "memory of the stream", bytes,
      uses.without([](const Use& use) { return use.counts.stream; }));
  add("relay-bytes", "batches", "changes each", uses.sizeOfBatches());
}

void measureChanges(Results& results) {
  const auto many = static_cast<uint64_t>(results.size(400'000, 100'000));
  const auto few = static_cast<uint64_t>(results.size(5'000, 1'000));
  const int blocks = results.size(5, 1);
  const Comparison large(4, blocks, static_cast<double>(many),
                         [=](Chain& chain) { chain.stream(many); });
  addChangeCosts(results, "many at once", large);
  const Comparison single(4, blocks, static_cast<double>(few),
                          [=](Chain& chain) { chain.single(few); });
  addChangeCosts(results, "one at a time", single);
  const double hash = useOf(0, [](Chain&) {}).hashOfRecord;
  results.add({"relay-bytes",
               "memory of the hash",
               "any",
               "bytes a record",
               {hash, hash, hash},
               "",
               {},
               ""});
}

void measureIdle(Results& results) {
  const int seconds = results.size(20, 3);
  const Comparison idle(20, 1, seconds, [=](Chain& chain) {
    const double end = nanoseconds() + seconds * 1e9;
    chain.turnUntil("the end", [=] { return nanoseconds() > end; });
  });
  const auto add = [&](const char* subject, const char* unit, Spread value) {
    results.add({"relay-idle", subject, "no changes", unit, value, "", {}, ""});
  };
  const auto commands = [](const Use& use) { return use.counts.commands; };
  add("publisher", "commands a second", idle.without(commands));
  add("each mirror", "commands a second", idle.ofEach(commands));
  add("server, without mirrors", "ns of CPU time a second", idle.without(serverTime));
  add("server, for each mirror", "ns of CPU time a second", idle.ofEach(serverTime));
  add("mirror", "ns of CPU time a second",
      idle.with([](const Use& use) { return use.time.mirror; }));
}

}  // namespace

void measureCosts(Results& results) {
  measureChanges(results);
  measureIdle(results);
}

}  // namespace Bench
