// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <zorbe/kick.h>

#include "kick/sleeper_nodes.h"
#include "support/failing_memory.h"

namespace Zorbe {
namespace {

namespace Memory = Test::Memory;
using SleeperNodes::Sleepers;

TEST(SleeperNodesFaultTest, ReadersWakeAndSleepAgainWithoutMemoryToKeepTheirNodes) {
  SleeperNodes::release();
  Sleepers sleepers;
  for (int fd = 0; fd < 3; ++fd) SleeperNodes::insert(sleepers, fd, nullptr);
  Memory::fail(1, Memory::Failing::kAlways);
  SleeperNodes::clear(sleepers);
  EXPECT_GT(Memory::stopFailing(), 0u);
  EXPECT_TRUE(sleepers.empty());
  SleeperNodes::insert(sleepers, 7, nullptr);
  EXPECT_EQ(1u, sleepers.count(7));
  SleeperNodes::release();
}

}  // namespace
}  // namespace Zorbe
