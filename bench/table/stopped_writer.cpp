// SPDX-License-Identifier: MIT
#include "table/stopped_writer.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorbe/table.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "harness/processes.h"
#include "harness/statistics.h"
#include "table/slots.h"
#include "table/store.h"
#ifdef BENCH_WITH_BOOST
#include <boost/interprocess/sync/interprocess_mutex.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>
#endif

namespace Bench {

namespace {

constexpr auto kStop = std::chrono::milliseconds(20);

// Where the writer runs: not in the reader's way, if there is room.
int writerCpu() {
  return cpuCount() > 1 ? 1 : 0;
}

class TableWriter : public StoppableWriter {
 public:
  explicit TableWriter(const std::string& directory) {
    options_.root = directory;
    process_.start(writerCpu(), [this] { write(); });
    process_.release();
    waitUntil("the table", [this] {
      reader_ = std::make_unique<Reader>("stopped", options_);
      return reader_->contains(keyOf(0));
    });
    slots_ = std::make_unique<MappedSlots>(directory + "/stopped", 1);
  }

  std::string name() const override { return "libZorbe"; }

 protected:
  pid_t pid() const override { return process_.pids().front(); }
  bool isWriting() override { return slots_->guard(0) % 2 != 0; }
  uint64_t progress() override { return slots_->guard(0); }
  void read() override { use(*reader_->get(keyOf(0))); }

 private:
  using Reader = Zorbe::Table::Reader<uint64_t, Record>;

  [[noreturn]] void write() const {
    Zorbe::Table::Writer<uint64_t, Record> writer("stopped", options_);
    for (uint64_t number = 0;; ++number) writer.put(keyOf(0), recordOf(number));
  }

  Zorbe::Table::Options options_;
  Children process_;
  std::unique_ptr<Reader> reader_;
  std::unique_ptr<MappedSlots> slots_;
};

#ifdef BENCH_WITH_BOOST
namespace Ipc = boost::interprocess;

// One record with its lock: what a map in shared memory would do on top is left out.
template <class Mutex, class ReadLock>
class MutexWriter : public StoppableWriter {
 public:
  explicit MutexWriter(std::string name) : name_(std::move(name)), shared_(*shared<Locked>()) {
    process_.start(writerCpu(), [this] {
      for (uint64_t number = 0;; ++number) {
        const Ipc::scoped_lock<Mutex> lock(shared_.mutex);
        shared_.record = recordOf(number);
        shared_.writes.store(number, std::memory_order_relaxed);
      }
    });
    process_.release();
  }

  std::string name() const override { return name_; }

 protected:
  pid_t pid() const override { return process_.pids().front(); }
  bool isWriting() override {
    const bool isFree = shared_.mutex.try_lock();
    if (isFree) shared_.mutex.unlock();
    return !isFree;
  }
  uint64_t progress() override { return shared_.writes.load(std::memory_order_relaxed); }
  void read() override {
    const ReadLock lock(shared_.mutex);
    const Record record = shared_.record;
    use(record);
  }

 private:
  struct Locked {
    Mutex mutex;
    Record record{};
    std::atomic<uint64_t> writes{0};
  };

  std::string name_;
  Locked& shared_;
  Children process_;
};
#endif

// Whether the kernel has given the CPU to another process since the last call, which counts: a
// read that waits for a lock gives it away by itself.
bool wasPreempted(long& preemptions) {
  rusage usage{};
  check(::getrusage(RUSAGE_THREAD, &usage), "getrusage()");
  return usage.ru_nivcsw != std::exchange(preemptions, usage.ru_nivcsw);
}

}  // namespace

std::string nameOf(WriterState state) {
  switch (state) {
    case WriterState::kIdle:
      return "writer idle";
    case WriterState::kBusy:
      return "writer busy";
    case WriterState::kStopped:
      break;
  }
  return "writer stopped for " + std::to_string(kStop.count()) + " ms";
}

// The writer is at the same place again within a few attempts: it does nothing but write.
void StoppableWriter::stop(bool writing) {
  waitUntil("a writer stopped where it should be", [&] {
    check(::kill(pid(), SIGSTOP), "kill()");
    int status = 0;
    check(::waitpid(pid(), &status, WUNTRACED), "waitpid()");
    if (!WIFSTOPPED(status)) throw std::runtime_error("the writer has ended");
    if (isWriting() == writing) return true;
    const uint64_t before = progress();
    check(::kill(pid(), SIGCONT), "kill()");
    waitUntil("a writer that goes on", [&] { return progress() != before; });
    return false;
  });
}

double StoppableWriter::slowestRead(WriterState state, double duration) {
  if (state != WriterState::kBusy) stop(state == WriterState::kStopped);
  std::thread resumer;
  const double start = nanoseconds();
  if (state == WriterState::kStopped) {
    resumer = std::thread([this] {
      std::this_thread::sleep_for(kStop);
      check(::kill(pid(), SIGCONT), "kill()");
    });
  }
  double slowest = 0;
  double before = start;
  long preemptions = 0;
  static_cast<void>(wasPreempted(preemptions));
  while (before < start + duration) {
    read();
    const double after = nanoseconds();
    if (after - before > slowest && !wasPreempted(preemptions)) slowest = after - before;
    before = after;
  }
  if (resumer.joinable()) resumer.join();
  if (state == WriterState::kIdle) check(::kill(pid(), SIGCONT), "kill()");
  return slowest;
}

std::vector<std::unique_ptr<StoppableWriter>> makeStoppableWriters(const std::string& directory) {
  pinTo(0);
  std::vector<std::unique_ptr<StoppableWriter>> writers;
  writers.push_back(std::make_unique<TableWriter>(directory));
#ifdef BENCH_WITH_BOOST
  using Ipc::interprocess_mutex;
  using Ipc::interprocess_sharable_mutex;
  writers.push_back(
      std::make_unique<MutexWriter<interprocess_mutex, Ipc::scoped_lock<interprocess_mutex>>>(
          "Boost, mutex"));
  writers.push_back(std::make_unique<MutexWriter<interprocess_sharable_mutex,
                                                 Ipc::sharable_lock<interprocess_sharable_mutex>>>(
      "Boost, sharable mutex"));
#endif
  return writers;
}

}  // namespace Bench
