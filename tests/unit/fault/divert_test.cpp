// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "fault/fault.h"

namespace Zorbe::Test {
namespace {

int refuseNinety(int fd) {
  if (fd == 90) return 0;
  const Fault::Bypass bypass;
  return ::close(fd);
}

class DivertTest : public testing::Test {
 protected:
  ~DivertTest() override { Fault::reset(); }
};

TEST_F(DivertTest, MakesCallsOnTheFunction) {
  Fault::divert("close", refuseNinety);
  EXPECT_EQ(::close(90), 0);
  EXPECT_EQ(Fault::calls("close"), 1u);
}

TEST_F(DivertTest, LetsTheFunctionCallTheLibrary) {
  Fault::divert("close", refuseNinety);
  EXPECT_EQ(::close(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(DivertTest, LetsArmedFaultsStrikeFirst) {
  Fault::divert(
      "getpid", +[] { return 7; });
  Fault::armResult("getpid", 2, 8);
  EXPECT_EQ(::getpid(), 7);
  EXPECT_EQ(::getpid(), 8);
}

TEST_F(DivertTest, ReplacesTheClockWhichIsNotCounted) {
  Fault::divert(
      "clock_gettime", +[](clockid_t, timespec* now) {
        *now = {42, 7};
        return 0;
      });
  timespec now = {};
  EXPECT_EQ(::clock_gettime(CLOCK_MONOTONIC, &now), 0);
  EXPECT_EQ(now.tv_sec, 42);
  EXPECT_EQ(now.tv_nsec, 7);
  EXPECT_EQ(Fault::calls("clock_gettime"), 0u);
}

TEST_F(DivertTest, EndsWithReset) {
  Fault::divert(
      "getpid", +[] { return 7; });
  Fault::reset();
  EXPECT_NE(::getpid(), 7);
}

}  // namespace
}  // namespace Zorbe::Test
