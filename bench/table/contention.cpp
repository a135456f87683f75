// SPDX-License-Identifier: MIT
//
// Several readers, and a writer that is busy or stopped.
#include <sched.h>

#include <atomic>

#include "harness/processes.h"
#include "harness/program.h"
#include "table/stopped_writer.h"
#include "table/store.h"

namespace Bench {

namespace {

constexpr uint64_t kRecords = 128'000;
constexpr double kBlock = 50e6;  // nanoseconds

struct Tally {
  std::atomic<int> ready{0};
  std::atomic<uint64_t> gets{0};
};

// Gets by all of `readers` processes together, per microsecond.
double getsOf(Store& store, int readers) {
  constexpr size_t kGets = 1000;
  auto& tally = *shared<Tally>();
  tally.ready = 0;
  tally.gets = 0;
  Children children;
  for (int each = 0; each < readers; ++each) {
    children.start(each % cpuCount(), [&] {
      const auto source = store.open();
      KeySource keys(kRecords);
      source->getAll(keys.next(kGets), kGets);
      ++tally.ready;
      while (tally.ready < readers) ::sched_yield();
      uint64_t gets = 0;
      for (const double end = nanoseconds() + kBlock; nanoseconds() < end; gets += kGets) {
        source->getAll(keys.next(kGets), kGets);
      }
      tally.gets += gets;
    });
  }
  children.release();
  children.wait();
  return static_cast<double>(tally.gets) / (kBlock / 1e3);
}

void measureReaders(Results& results) {
  ScratchDirectory directory;
  const Stores stores = makeSharedStores(directory.path(), kRecords);
  for (const int readers : {1, 4, 16}) {
    std::vector<Subject> subjects;
    for (const auto& store : stores) {
      subjects.push_back({store->name(), [&store, readers] {
                            return std::vector<double>{getsOf(*store, readers)};
                          }});
    }
    results.addMedians("table-readers", std::to_string(readers) + " processes",
                       "million gets a second", compare(subjects, results.size(7, 3)));
  }
}

void measureSlowest(Results& results) {
  ScratchDirectory directory;
  const auto writers = makeStoppableWriters(directory.path());
  struct Case {
    StoppableWriter* writer;
    WriterState state;
  };
  std::vector<Case> cases;
  std::vector<Subject> subjects;
  for (const auto& writer : writers) {
    for (const WriterState state :
         {WriterState::kIdle, WriterState::kBusy, WriterState::kStopped}) {
      cases.push_back({writer.get(), state});
      subjects.push_back({writer->name(), [&writer, state] {
                            return std::vector<double>{writer->slowestRead(state, kBlock)};
                          }});
    }
  }
  const auto outcomes = compare(subjects, results.size(15, 5));
  for (size_t each = 0; each < outcomes.size(); ++each) {
    const Outcome& outcome = outcomes[each];
    const bool judged = cases[each].writer == writers.front().get() && each > 0;
    results.add({"table-slowest", outcome.name, nameOf(cases[each].state), "ns", outcome.median,
                 each == 0 ? "" : "libZorbe, writer idle", outcome.medianRatio,
                 judged ? "<= 1.5" : ""});
  }
}

void run(Results& results) {
  runApart([&] { measureReaders(results); });
  runApart([&] { measureSlowest(results); });
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
