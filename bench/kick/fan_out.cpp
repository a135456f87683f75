// SPDX-License-Identifier: MIT
//
// Many sleeping readers, a process each: from doKickSleepers to the last report handled, as
// the time per reader.
#include "harness/processes.h"
#include "harness/program.h"
#include "kick/scheme.h"

namespace Bench {

namespace {

std::vector<Outcome> perReader(std::vector<Outcome> outcomes, double readers) {
  for (Outcome& outcome : outcomes) {
    for (Spread* spread : {&outcome.median, &outcome.p99}) {
      *spread = {spread->median / readers, spread->low / readers, spread->high / readers};
    }
  }
  return outcomes;
}

void run(Results& results) {
  raiseDescriptorLimit();
  pinTo(0);
  for (const int readers : {1, 10, 100, 1000}) {
    Field field(closePair(), readers, -1);
    const int rounds = results.size(20000, 4000) / readers / 5 + 10;
    const auto outcomes = race(field, results.size(60, 15), rounds);
    results.addMedians("fan-out", std::to_string(readers), "ns a reader",
                       perReader(outcomes, readers), "<= 1.05");
  }
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
