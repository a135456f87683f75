// SPDX-License-Identifier: MIT
//
// Tables on other hosts: rates, times and costs of zorbe-relay. All that runs at the same time runs
// on two CPUs, or on one where that is stated.
#include "harness/processes.h"
#include "harness/program.h"
#include "relay/measurements.h"

namespace Bench {

namespace {

void run(Results& results) {
  runApart([&] { measureRate(results); });
  runApart([&] { measureWakeUp(results, "two CPUs, network of 0.1 ms", 1e5); });
  runApart([&] { measureWakeUp(results, "two CPUs, no network", 0); });
  runApart([&] {
    pinTo(0);
    measureWakeUp(results, "one CPU, no network", 0);
  });
  measureTransfer(results);
  measureCosts(results);
  measureOutages(results);
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
