// SPDX-License-Identifier: MIT
//
// What the end of a watched directory costs while the ends of many others wait: instructions,
// counted in a traced child. So all ends together cost a multiple of their number.
#include <deque>

#include "unit/platform/brask/linux/inotify_fixture.h"
#include "unit/platform/brask/linux/steps.h"

using Brask::Linux::EventLoop;
using namespace LoopTesting;

namespace {

constexpr int kFew = 100;
constexpr int kMany = 16 * kFew;
constexpr int kTimes = 2;

// Making and removing so many directories on a disk takes minutes.
std::filesystem::path inMemory() {
  const std::filesystem::path memory = "/dev/shm";
  return ::access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
}

// Has some instructions counted in the middle of what is reported in this way.
class Middle {
 public:
  Middle(int count, std::string kind, const Counted& counted)
      : first_(count / 2), kind_(std::move(kind)), counted_(counted) {}

  void report(const std::string& text) {
    if (text.compare(0, kind_.size(), kind_) != 0) return;
    if (++reports_ == first_) counted_.begin();
    if (reports_ == first_ + kTimes) counted_.end();
  }

 private:
  int first_;
  std::string kind_;
  const Counted& counted_;
  int reports_ = 0;
};

class InotifyStepsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ifstream limit("/proc/sys/fs/inotify/max_user_watches");
    int watches = 0;
    limit >> watches;
    if (watches < 2 * kMany) GTEST_SKIP() << "may not watch " << kMany << " directories";
  }

  // Each directory is watched, and ends.
  void expectLinearCost() {
    expectNoMoreAmong(kMany, kFew, [&](int count, const Counted& counted) {
      EventLoop loop;
      InotifyProbe outer;
      if (parentIsWatched) outer.control->addWatch(directory.path, IN_DELETE);
      std::deque<InotifyProbe> probes(static_cast<size_t>(count));
      Middle ends(count, "deleted", counted), refusals(count, "error", counted);
      for (int i = 0; i < count; ++i) {
        watch(probes[static_cast<size_t>(i)], i, [&](const std::string& text) {
          ends.report(text);
          refusals.report(text);
        });
      }
      for (int i = 0; i < count; ++i) EXPECT_EQ(0, ::rmdir(path(i).c_str()));
      while (loop.turn(0)) {
      }
      for (const InotifyProbe& probe : probes) EXPECT_EQ(again ? 2u : 1u, probe.reports.size());
      counted([&] { probes.resize(probes.size() - kTimes); });
    });
  }

  void watch(InotifyProbe& probe, int number,
             const std::function<void(const std::string&)>& report) {
    probe.control->addWatch(directory.make(std::to_string(number)), IN_CREATE);
    probe.onEvent = [this, &probe, number, report] {
      report(probe.reports.back());
      if (again && probe.reports.back() == "deleted")
        probe.control->addWatch(path(number), IN_CREATE);
    };
  }

  std::string path(int number) const { return directory.path + "/" + std::to_string(number); }

  Directory directory{inMemory()};
  bool again = false;  // ask for each watch again when it ends
  bool parentIsWatched = false;
};

}  // namespace

TEST_F(InotifyStepsTest, TheEndOfADirectoryIsReportedAsFastAmongMany) {
  expectLinearCost();
}

TEST_F(InotifyStepsTest, SoItIsWhenTheWatchIsAskedForAgainAndRefused) {
  again = true;
  expectLinearCost();
}

TEST_F(InotifyStepsTest, SoItIsWhenTheParentIsWatchedToo) {
  again = parentIsWatched = true;
  expectLinearCost();
}
