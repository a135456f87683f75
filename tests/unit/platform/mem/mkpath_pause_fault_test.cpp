// SPDX-License-Identifier: MIT
//
// How long mkpath waits for another maker, and what it returns when it gives up.
#include <poll.h>

#include <ctime>
#include <vector>

#include "fault/fault.h"
#include "unit/platform/mem/mkpath_fixture.h"

namespace Zorbe::Test {
namespace {

constexpr time_t kChanged = 1000000;

class MkpathPauseTest : public MkpathTest {
 protected:
  MkpathPauseTest() {
    pauses_.clear();
    Fault::divert("poll", notePause);
    Fault::divert("clock_gettime", tellTime);
  }

  // Whether mkpath waits where the parent was changed as long ago.
  bool waitsAfter(time_t seconds) const {
    now_ = kChanged + seconds;
    pauses_.clear();
    Fault::arm("mkdirat", 1, EACCES);
    Fault::alterStat("stat", 2, [](struct stat& status) {
      status.st_ctim.tv_sec = kChanged;
    }).onPath(rootPath());
    const int error = errorOf(inRoot("a"));
    EXPECT_EQ(pauses_.empty() ? EACCES : 0, error);
    static_cast<void>(rmdir(inRoot("a").c_str()));  // made after a pause only
    return !pauses_.empty();
  }

  static int notePause(pollfd* /*entries*/, nfds_t count, int milliseconds) {
    EXPECT_EQ(0u, count);
    pauses_.push_back(milliseconds);
    return 0;
  }

  static int tellTime(clockid_t clock, timespec* now) {
    EXPECT_EQ(CLOCK_REALTIME, clock);
    *now = {now_, 999999999};
    return 0;
  }

  static inline std::vector<int> pauses_;
  static inline time_t now_ = 0;
};

TEST_F(MkpathPauseTest, WaitsWhereTheParentHasChangedInThisOrTheLastSecond) {
  EXPECT_TRUE(waitsAfter(0));
  EXPECT_TRUE(waitsAfter(1));
  EXPECT_FALSE(waitsAfter(2));
  EXPECT_TRUE(waitsAfter(-1)) << "a clock that was set back";
  EXPECT_FALSE(waitsAfter(-2));
}

TEST_F(MkpathPauseTest, WaitsForAMillisecondAtATime) {
  EXPECT_TRUE(waitsAfter(0));
  EXPECT_EQ(std::vector<int>{1}, pauses_);
}

TEST_F(MkpathPauseTest, DoesNotWaitWithoutAClock) {
  Fault::divert(
      "clock_gettime", +[](clockid_t, timespec*) { return -1; });
  EXPECT_FALSE(waitsAfter(0));
}

TEST_F(MkpathPauseTest, EveryFailureIsMinusOne) {
  EXPECT_EQ(-1, Mem::mkpath("", 0777));
  EXPECT_EQ(-1, Mem::mkpath(std::string("\0", 1), 0777));
  makeFile("file");
  EXPECT_EQ(-1, Mem::mkpath(inRoot("file"), 0777));
}

}  // namespace
}  // namespace Zorbe::Test
