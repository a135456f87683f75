// SPDX-License-Identifier: MIT
//
// No memory for a control, or for a watch that the kernel has set already.
#include <new>

#include "support/failing_memory.h"
#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;
namespace Memory = Zorbe::Test::Memory;

namespace {

class LoopMemoryTest : public InotifyTest {
 protected:
  /// False when there was memory after all.
  static bool doWithout(unsigned long nthBlock, const std::function<void()>& action) {
    Memory::fail(nthBlock, Memory::Failing::kOnce);
    try {
      action();
    } catch (const std::bad_alloc&) {
    }
    return Memory::stopFailing() != 0;
  }

  bool addWatchWithout(unsigned long nthBlock, InotifyProbe& probe) const {
    return doWithout(nthBlock, [&] { probe.control->addWatch(directory.path, IN_CREATE); });
  }
};

}  // namespace

TEST_F(LoopMemoryTest, AWatchThatThereIsNoMemoryForIsNotLeftWithTheKernel) {
  unsigned long nth = 1;
  for (bool failed = true; failed; ++nth) {
    auto probe = std::make_unique<InotifyProbe>();
    failed = addWatchWithout(nth, *probe);
    probe.reset();
    EXPECT_TRUE(kernelWatches().empty()) << "block " << nth;
  }
  EXPECT_GT(nth, 4u);
}

TEST_F(LoopMemoryTest, AWatchThatThereWasNoMemoryForCanBeAddedAgain) {
  for (unsigned long nth = 1; nth < 8; ++nth) {
    InotifyProbe probe;
    addWatchWithout(nth, probe);
    probe.control->addWatch(directory.path, IN_CREATE);
    directory.make("new");
    settle();
    EXPECT_EQ(Reports{"changed new"}, probe.reports) << "block " << nth;
    remove(directory.path + "/new");
  }
}

TEST_F(LoopMemoryTest, ARefusalThatThereIsNoMemoryForLeavesNothingBehind) {
  unsigned long nth = 1;
  for (bool failed = true; failed; ++nth) {
    InotifyProbe probe;
    bool returned = false;
    failed = doWithout(nth, [&] {
      probe.control->addWatch(directory.path + "/missing", IN_CREATE);
      returned = true;
    });
    settle();
    EXPECT_EQ(returned ? 1u : 0u, probe.reports.size()) << "block " << nth;
  }
  EXPECT_GT(nth, 4u);
}

TEST_F(LoopMemoryTest, AWatcherThatThereIsNoMemoryForTakesNothingFromTheOthers) {
  for (unsigned long nth = 1; nth < 8; ++nth) {
    InotifyProbe first, second;
    first.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
    if (!addWatchWithout(nth, second)) break;
    directory.make("new");
    remove(directory.path + "/new");
    settle();
    EXPECT_EQ((Reports{"changed new", "changed new"}), first.reports) << "block " << nth;
    EXPECT_EQ(Reports{}, second.reports) << "block " << nth;
  }
}

TEST_F(LoopMemoryTest, ATimerThatThereIsNoMemoryForLeavesNothingBehind) {
  struct Silent : Brask::Platform::TimeoutHandler {
    void timeout() override {}
  } silent;
  std::vector<std::unique_ptr<Brask::Platform::TimerControl>> timers;
  timers.reserve(100);
  unsigned refusals = 0;
  while (timers.size() < 100) {
    const long before = Memory::blocks();
    const auto make = [&] { timers.emplace_back(Brask::Platform::getTimerControl(&silent)); };
    if (doWithout(2, make)) {
      ++refusals;
      EXPECT_EQ(before, Memory::blocks());
      make();
    }
  }
  EXPECT_GT(refusals, 1u);
}
