// SPDX-License-Identifier: MIT
#include "support/child.h"

#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

namespace Zorbe::Test {
namespace {

TEST(ChildTest, ExitsWithWhatItsBodyReturns) {
  const pid_t parent = getpid();
  EXPECT_EQ(exitStatus(startChild([parent] { return getppid() == parent ? 7 : 8; })), 7);
}

TEST(ChildTest, AnOrdinaryUserIsNotRoot) {
  EXPECT_EQ(exitStatus(startAsOrdinaryUser([] { return geteuid() != 0 ? 0 : 1; })), 0);
}

TEST(ChildTest, AChildThatIsKilledFailsTheTest) {
  const pid_t pid = startChild([] { return raise(SIGKILL); });
  EXPECT_NONFATAL_FAILURE(exitStatus(pid), "ended by signal 9");
}

TEST(ChildTest, RunsEveryThread) {
  std::atomic<int> ran{0};
  inParallel(3, [&ran] { ++ran; });
  EXPECT_EQ(ran, 3);
}

}  // namespace
}  // namespace Zorbe::Test
