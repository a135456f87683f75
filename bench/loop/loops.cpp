// SPDX-License-Identifier: MIT
//
// The bundled loop and others: one descriptor event, one timer moved, one turn without
// delay, while many descriptors are watched and silent.
#include <sys/eventfd.h>
#include <unistd.h>

#include <vector>

#include "harness/processes.h"
#include "harness/program.h"
#include "loop/driver.h"

namespace Bench {

namespace {

using Drivers = std::vector<std::unique_ptr<LoopDriver>>;

Drivers allDrivers() {
  Drivers drivers;
  drivers.push_back(makeBundledLoop());
#ifdef BENCH_WITH_LIBUV
  drivers.push_back(makeLibuv());
#endif
#ifdef BENCH_WITH_LIBEVENT
  drivers.push_back(makeLibevent());
#endif
  return drivers;
}

// Descriptors that all loops watch: silent ones, and one that can be made ready.
class Descriptors {
 public:
  explicit Descriptors(int silent) {
    for (int each = 0; each <= silent; ++each) {
      fds_.push_back(check(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd()"));
    }
  }
  ~Descriptors() {
    for (const int fd : fds_) static_cast<void>(::close(fd));
  }
  Descriptors(const Descriptors&) = delete;
  Descriptors& operator=(const Descriptors&) = delete;

  const std::vector<int>& all() const { return fds_; }

  void makeReady() {
    const uint64_t one = 1;
    check(static_cast<int>(::write(fds_.back(), &one, sizeof one)), "write()");
  }

 private:
  std::vector<int> fds_;
};

void measureWith(Results& results, int silent) {
  Descriptors descriptors(silent);
  Drivers drivers = allDrivers();
  for (const auto& driver : drivers) {
    for (const int fd : descriptors.all()) driver->watch(fd);
  }
  const int count = results.size(5000, 1000);
  const auto measure = [&](const char* group, void (LoopDriver::*work)(int)) {
    std::vector<Subject> subjects;
    for (const auto& driver : drivers) {
      subjects.push_back({driver->name(), [&driver, count, work] {
                            return timeTogether(count, [&] { (driver.get()->*work)(count); });
                          }});
    }
    results.addMedians(group, std::to_string(silent), "ns",
                       compare(subjects, results.size(200, 50)), ">= 1");
  };
  measure("loop-turn", &LoopDriver::turn);
  measure("loop-rearm", &LoopDriver::rearm);
  descriptors.makeReady();
  measure("loop-event", &LoopDriver::dispatch);
}

void run(Results& results) {
  const long limit = raiseDescriptorLimit();
  pinTo(0);
  for (const int silent : {10, 1000, 10000}) {
    if (limit < silent + 100) {
      results.skip("loop", std::to_string(silent) + " descriptors",
                   "the limit of open descriptors is lower");
    } else {
      measureWith(results, silent);
    }
  }
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
