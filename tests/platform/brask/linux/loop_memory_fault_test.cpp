// SPDX-License-Identifier: MIT
//
// No memory for a watch, which the kernel has set already.
#include <new>

#include "platform/brask/linux/inotify_fixture.h"
#include "sweep/memory.h"

namespace Zorbe::Test::Sweep {
namespace {

class WatchMemoryTest : public LoopTesting::InotifyTest {
 protected:
  /// False when there was memory after all.
  bool addWatchWithout(unsigned long nthBlock, LoopTesting::InotifyProbe& probe) const {
    Memory::fail(nthBlock, Memory::Lack::once);
    try {
      probe.control->addWatch(directory.path, IN_CREATE);
    } catch (const std::bad_alloc&) {
    }
    return Memory::stopFailing() != 0;
  }
};

TEST_F(WatchMemoryTest, AWatchThatThereIsNoMemoryForIsNotLeftWithTheKernel) {
  unsigned long nth = 1;
  for (bool failed = true; failed; ++nth) {
    auto probe = std::make_unique<LoopTesting::InotifyProbe>();
    failed = addWatchWithout(nth, *probe);
    probe.reset();
    EXPECT_TRUE(kernelWatches().empty()) << "block " << nth;
  }
  EXPECT_GT(nth, 4u);
}

TEST_F(WatchMemoryTest, AWatchThatThereWasNoMemoryForCanBeAddedAgain) {
  for (unsigned long nth = 1; nth < 8; ++nth) {
    LoopTesting::InotifyProbe probe;
    addWatchWithout(nth, probe);
    probe.control->addWatch(directory.path, IN_CREATE);
    directory.make("new");
    while (loop->turn(0)) {
    }
    EXPECT_EQ(std::vector<std::string>{"changed new"}, probe.told) << "block " << nth;
    remove(directory.path + "/new");
  }
}

}  // namespace
}  // namespace Zorbe::Test::Sweep
