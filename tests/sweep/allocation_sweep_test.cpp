// SPDX-License-Identifier: MIT
//
// The k-th allocation of a whole life fails, for every k: the client's, the library's and
// the loop's.
#include "sweep/failures.h"
#include "sweep/sweep_fixture.h"

namespace Zorbe::Test::Sweep {
namespace {

class AllocationSweepTest : public SweepTest {
 protected:
  AllocationSweepTest() {
    live({"nothing fails", Life::Effort::normal, [] {}, [](const Witness&) {}});
  }

  void sweep(Life::Effort effort, Memory::Lack lack, unsigned step) {
    for (unsigned nth = 1; !hasEnough(); nth += step) {
      live({"allocation " + std::to_string(nth), effort, [=] { Memory::fail(nth, lack); },
            [](const Witness&) {}});
      if (Memory::stopFailing() == 0) return finish(nth - 1);
    }
  }

 private:
  void finish(unsigned allocations) const {
    std::cout << "allocation sweep: " << allocations << " allocations, " << lives << " lives\n";
  }
};

TEST_F(AllocationSweepTest, NothingComesOfOneBlockThatIsNotThereButBadAlloc) {
  sweep(Life::Effort::normal, Memory::Lack::once, isFull() ? 1 : 3);
}

TEST_F(AllocationSweepTest, ObjectsCanBeDestroyedWhenNoMemoryIsLeft) {
  sweep(Life::Effort::small, Memory::Lack::lasting, isFull() ? 1 : 7);
}

}  // namespace
}  // namespace Zorbe::Test::Sweep
