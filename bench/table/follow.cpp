// SPDX-License-Identifier: MIT
//
// Followers: how long a sleeping one takes to have a value, and how fast one catches up.
#include <brask/linux/event_loop.h>
#include <zorbe/table.h>
#include <zorbe/table/in_loop.h>

#include <sched.h>

#include <atomic>
#include <utility>

#include "harness/processes.h"
#include "harness/program.h"
#include "kick/libraries.h"
#include "kick/scheme.h"
#include "table/store.h"

namespace Bench {

namespace {

using Brask::Linux::EventLoop;
using Zorbe::Table::Kind;
using Zorbe::Table::LoopReader;
using Zorbe::Table::LoopWriter;

// A round puts and publishes, and ends when the follower has read the value and reported.
class TableScheme : public Scheme {
 public:
  ~TableScheme() override {
    if (!loop_) return;
    const EventLoop::Use use(*loop_);
    writer_.reset();
  }

  std::string name() const override { return "Zorbe::Table"; }

  void prepare() override {
    seen_ = shared<std::atomic<uint64_t>>();
    options_.root = directory_.path();
  }

  void read() override {
    EventLoop loop;
    LoopReader<uint64_t, Record> reader("bench", options_);
    reader.onReady([&] {
      while (const auto change = reader.next()) {
        if (change->kind == Kind::put) seen_->store(change->value.words[0]);
      }
    });
    for (;;) loop.turn(-1);
  }

  void open(int) override {
    loop_ = std::make_unique<EventLoop>(EventLoop::Unbound{});
    const EventLoop::Use use(*loop_);
    writer_ = std::make_unique<LoopWriter<uint64_t, Record>>("bench", options_);
  }

  void settle() override {
    for (int each = 0; each < 100; ++each) round();
  }

  void round() override {
    const EventLoop::Use use(*loop_);
    writer_->put(keyOf(0), recordOf(++number_));
    writer_->publish();
    loop_->turn(-1);  // until the report, most of the time
    // next() reports before it returns the last change: the value may be seen only afterwards.
    while (seen_->load() != number_) {
      ::sched_yield();
      loop_->turn(0);
    }
  }

 private:
  ScratchDirectory directory_;
  Zorbe::Table::Options options_;
  std::atomic<uint64_t>* seen_ = nullptr;
  uint64_t number_ = 0;
  std::unique_ptr<EventLoop> loop_;  // beside that of the bare kick
  std::unique_ptr<LoopWriter<uint64_t, Record>> writer_;
};

void measureRound(Results& results, const std::string& placement, int readerCpu) {
  Schemes schemes;
  schemes.push_back(makeZorbe());
  schemes.push_back(std::make_unique<TableScheme>());
#ifdef BENCH_WITH_REDIS
  schemes.push_back(makeRedis());
#endif
  Field field(std::move(schemes), 1, readerCpu);
  for (const Outcome& outcome : race(field, results.size(100, 20), results.size(500, 200))) {
    const bool isBaseline = outcome.name == "libZorbe";
    const bool isJudged = outcome.name == "Zorbe::Table" && readerCpu < 0;
    results.add({"table-follow", isBaseline ? "bare kick" : outcome.name, placement, "ns",
                 outcome.median, isBaseline ? "" : "bare kick", outcome.medianRatio,
                 isJudged ? "<= 1.10" : ""});
  }
}

void measureCatchingUp(Results& results) {
  constexpr uint64_t kChanges = 100'000;
  ScratchDirectory directory;
  Zorbe::Table::Options options;
  options.root = directory.path();
  options.records = kChanges;
  options.logEntries = 8 * kChanges;
  Zorbe::Table::Writer<uint64_t, Record> writer("bench", options);
  Zorbe::Table::Reader<uint64_t, Record> reader("bench", options);
  const auto drain = [&] {
    uint64_t changes = 0;
    while (const auto change = reader.next()) {
      use(*change);
      ++changes;
    }
    return changes;
  };
  std::vector<double> rates;
  for (int block = 0; block <= results.size(30, 10); ++block) {
    for (uint64_t number = 0; number < kChanges; ++number) {
      writer.put(keyOf(number), recordOf(number));
    }
    writer.publish();
    const double start = nanoseconds();
    const uint64_t changes = drain();
    const double microseconds = (nanoseconds() - start) / 1e3;
    if (block > 0 && changes != kChanges) failMissing();
    if (block > 0) rates.push_back(static_cast<double>(changes) / microseconds);
  }
  results.add({"table-behind",
               "libZorbe",
               "100,000 changes",
               "million changes a second",
               spreadOf(rates),
               "",
               {},
               ">= 3"});
}

void run(Results& results) {
  pinTo(0);
  runApart([&] { measureRound(results, "one CPU", -1); });
  if (cpuCount() > 1) runApart([&] { measureRound(results, "two CPUs", 1); });
  runApart([&] { measureCatchingUp(results); });
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
