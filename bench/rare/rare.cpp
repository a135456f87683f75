// SPDX-License-Identifier: MIT
//
// Start-up and rare operations: on a quiet host, and on one with many processes and descriptors,
// where a process that is refused the writer lock has to find out which process holds it.
#include <sched.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <zorbe/counters.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include "harness/program.h"
#include "kick/one_process.h"

namespace Bench {

namespace {

constexpr int kCrowd = 500;
constexpr int kDescriptorsEach = 10;

void liveInTheCrowd(std::atomic<int>& settled) {
  for (int each = 0; each < kDescriptorsEach; ++each) check(::eventfd(0, EFD_CLOEXEC), "eventfd()");
  ++settled;
  ::pause();
}

// Connects a reader to a writer of the same process; only doConnect is timed.
class Connecting {
 public:
  explicit Connecting(const Zorbe::RootPath& root)
      : writer_(handler_, root, published_), reader_(handler_, root, published_) {
    writer_.open();
  }

  std::vector<double> block(int count) {
    std::vector<double> times;
    for (int each = 0; each < count; ++each) {
      times.push_back(timeEach(1, [this] { reader_.doConnect(); }).front());
      while (writer_.sleeping() == 0) loop_.turn(-1);
      reader_.doCloseWriterConnection(true);
      while (writer_.connected() != 0) loop_.turn(-1);
    }
    return times;
  }

 private:
  SilentHandler handler_;
  Published published_{0};
  Brask::Linux::EventLoop loop_;
  Writer writer_;
  Reader reader_;
};

std::vector<double> refusals(const Zorbe::RootPath& root, int count) {
  SilentHandler handler;
  const int lock = Zorbe::Util::acquireWriterLock(handler, root);
  auto times = timeEach(count, [&] {
    try {
      static_cast<void>(Zorbe::Util::acquireWriterLock(handler, root));
    } catch (const Zorbe::DuplicateWriterException&) {
    }
  });
  check(Zorbe::Util::releaseWriterLock(handler, lock), "releaseWriterLock()");
  return times;
}

void measureOn(Results& results, const std::string& host, const Zorbe::RootPath& root) {
  SilentHandler handler;
  const int count = results.size(1000, 200);
  const auto add = [&](const char* what, const std::vector<double>& times) {
    results.add({"rare", what, host, "ns", spreadOf(times), "", {}, ""});
  };
  add("acquireWriterLock and releaseWriterLock", timeEach(count, [&] {
        const int lock = Zorbe::Util::acquireWriterLock(handler, root);
        check(Zorbe::Util::releaseWriterLock(handler, lock), "releaseWriterLock()");
      }));
  add("doConnect", Connecting(root).block(count));
  add("a refused second writer", refusals(root, results.size(100, 20)));
}

void measureCounters(Results& results) {
  const Zorbe::Reader::Counters reader{};
  const Zorbe::Writer::Counters writer{};
  const int count = results.size(20000, 2000);
  const auto add = [&](const char* what, const std::vector<double>& times) {
    results.add({"rare", what, "any host", "ns", spreadOf(times), "", {}, ""});
  };
  size_t length = 0;
  add("Reader::Counters::toString", timeEach(count, [&] { length += reader.toString().size(); }));
  add("Writer::Counters::toString", timeEach(count, [&] { length += writer.toString().size(); }));
  if (length == 0) throw std::runtime_error("no counter was printed");
}

void run(Results& results) {
  pinTo(0);
  ScratchDirectory directory;
  check(::setenv("SHMEM_ROOT", directory.path().c_str(), 1), "setenv()");
  SilentHandler handler;
  const Zorbe::RootPath root(handler, "bench", true);
  measureCounters(results);
  measureOn(results, "quiet host", root);
  auto& settled = *shared<std::atomic<int>>();
  Children others;
  for (int each = 0; each < kCrowd; ++each) others.start(-1, [&] { liveInTheCrowd(settled); });
  others.release();
  while (settled < kCrowd) ::sched_yield();
  measureOn(results, "500 processes, 5,000 descriptors", root);
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
