// SPDX-License-Identifier: MIT
//
// What many watched directories cost when all of them end: a multiple of what a tenth of them
// costs, measured in the time of the processor that this thread has used.
#include <algorithm>
#include <ctime>
#include <deque>

#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

constexpr size_t kMany = 8000;
constexpr size_t kFew = kMany / 10;

double processorSeconds() {
  timespec used{};
  EXPECT_EQ(0, ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used));
  return static_cast<double>(used.tv_sec) + 1e-9 * static_cast<double>(used.tv_nsec);
}

// Making and removing so many directories on a disk takes minutes.
std::filesystem::path inMemory() {
  const std::filesystem::path memory = "/dev/shm";
  return ::access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
}

class InotifyCostTest : public LoopTest {
 protected:
  void SetUp() override {
    std::ifstream limit("/proc/sys/fs/inotify/max_user_watches");
    size_t watches = 0;
    limit >> watches;
    if (watches < 2 * kMany) GTEST_SKIP() << "may not watch " << kMany << " directories";
  }

  static void remove(const std::string& path) { ASSERT_EQ(0, ::rmdir(path.c_str())) << path; }

  std::string path(size_t number) const { return directory.path + "/" + std::to_string(number); }

  // The least of three times that `count` directories end.
  double costOf(size_t count) {
    double best = 1e9;
    for (int round = 0; round < 3; ++round) {
      std::deque<InotifyProbe> probes(count);
      for (size_t i = 0; i < count; ++i) watch(probes[i], directory.make(std::to_string(i)));
      for (size_t i = 0; i < count; ++i) remove(path(i));
      const double start = processorSeconds();
      settle();
      probes.clear();
      best = std::min(best, processorSeconds() - start);
    }
    return best;
  }

  void watch(InotifyProbe& probe, const std::string& place) const {
    probe.control->addWatch(place, IN_CREATE);
    if (!again) return;
    probe.onEvent = [&probe, place] {
      if (probe.told.back() == "deleted") probe.control->addWatch(place, IN_CREATE);
    };
  }

  Directory directory{inMemory()};
  bool again = false;  // ask for each watch again when it ends
};

}  // namespace

TEST_F(InotifyCostTest, TheEndsOfTenTimesAsManyDirectoriesCostTenTimesAsMuch) {
  const double few = costOf(kFew);
  EXPECT_LT(costOf(kMany), 30 * few);
}

TEST_F(InotifyCostTest, SoTheyDoWhenEachIsAskedForAgainAndRefused) {
  again = true;
  const double few = costOf(kFew);
  EXPECT_LT(costOf(kMany), 30 * few);
}

TEST_F(InotifyCostTest, SoTheyDoWhenTheirParentIsWatchedToo) {
  again = true;
  InotifyProbe outer;
  outer.control->addWatch(directory.path, IN_DELETE);
  const double few = costOf(kFew);
  EXPECT_LT(costOf(kMany), 30 * few);
}
