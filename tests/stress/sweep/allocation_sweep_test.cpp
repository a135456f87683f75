// SPDX-License-Identifier: MIT
//
// The k-th allocation of a whole scenario fails, for every k: the client's, the library's and
// the loop's.
#include "stress/sweep/failures.h"
#include "stress/sweep/sweep_fixture.h"

namespace Zorbe::Test::Sweep {
namespace {

class AllocationSweepTest : public SweepTest {
 protected:
  void sweep(Scenario::Effort effort, Memory::Failing failing, unsigned step) {
    learnBaseline(effort);
    for (unsigned nth = 1; !hasManyProblems(); nth += step) {
      bool fired = false;
      runScenario({"allocation " + std::to_string(nth), effort, [=] { Memory::fail(nth, failing); },
                   [&](const EventRecorder& recorder) {
                     fired = Memory::stopFailing() != 0;
                     if (fired) check(recorder);
                   }});
      if (!fired) return finish(nth - 1);
    }
  }

 private:
  void check(const EventRecorder& recorder) {
    for (const std::string& text : newExceptions(recorder)) report("throws: " + text);
    if (recorder.badAllocs() == 0 && !missesMessages(recorder)) ++unnoticed;
  }

  void finish(unsigned allocations) const {
    std::cout << "allocation sweep: " << allocations << " allocations, " << runs << " runs, "
              << unnoticed << " without bad_alloc and with every message\n";
  }

  // Counted, but no failure: not every allocation that fails has a visible effect.
  unsigned unnoticed = 0;
};

TEST_F(AllocationSweepTest, OneFailingAllocationThrowsBadAllocAndNothingElse) {
  sweep(Scenario::Effort::kNormal, Memory::Failing::kOnce, isFull() ? 1 : 3);
}

TEST_F(AllocationSweepTest, ObjectsCanBeDestroyedWhenNoMemoryIsLeft) {
  sweep(Scenario::Effort::kSmall, Memory::Failing::kAlways, isFull() ? 1 : 7);
}

}  // namespace
}  // namespace Zorbe::Test::Sweep
