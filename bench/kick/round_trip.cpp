// SPDX-License-Identifier: MIT
//
// One sleeping reader in another process: publish, wake, answer. The library, the floor and the
// alternatives of a user, all in turns within one run.
#include <utility>

#include "harness/processes.h"
#include "harness/program.h"
#include "kick/scheme.h"

namespace Bench {

namespace {

Schemes allSchemes() {
  Schemes schemes = closePair();
  schemes.push_back(makeFutex());
  schemes.push_back(makeEventfd());
  for (auto& scheme : makeLibraries()) schemes.push_back(std::move(scheme));
  return schemes;
}

void measure(Results& results, const std::string& placement, int readerCpu) {
  {
    const bool oneCpu = readerCpu < 0;
    Field field(closePair(), 1, readerCpu);
    const auto outcomes = race(field, results.size(200, 40), results.size(1000, 500));
    results.addMedians("kick", placement, "ns", outcomes, oneCpu ? "<= 1.05" : "");
    results.addP99s("kick-p99", placement, "ns", outcomes, oneCpu ? "<= 1.10" : "");
  }
  Field field(allSchemes(), 1, readerCpu);
  results.addMedians("alternatives", placement, "ns",
                     race(field, results.size(60, 15), results.size(500, 200)));
}

void run(Results& results) {
  pinTo(0);
  const auto apart = [&](const char* placement, int readerCpu) {
    runApart([&] { measure(results, placement, readerCpu); });
  };
  apart("one CPU", -1);
  if (cpuCount() > 1) {
    apart("two CPUs", 1);
  } else {
    results.skip("kick", "two CPUs", "this machine has one");
  }
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
