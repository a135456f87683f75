// SPDX-License-Identifier: MIT
#include "kick/sleeper_nodes.h"

#include <gtest/gtest.h>
#include <zorbe/kick.h>

#include <set>
#include <vector>

#include "support/parallel.h"

namespace Zorbe {

namespace {

using SleeperNodes::Sleepers;

class SleeperNodesTest : public ::testing::Test {
 protected:
  // Never looked at: a map of sleepers only passes its clients on.
  ReaderKickClientSm* client(size_t which) {
    return reinterpret_cast<ReaderKickClientSm*>(&clients_[which]);
  }

  void fallAsleep(int fd, size_t which = 0) { SleeperNodes::insert(sleepers, fd, client(which)); }
  void wake() { SleeperNodes::clear(sleepers); }

  // Where the nodes of the sleepers are.
  std::set<const void*> places() const {
    std::set<const void*> found;
    for (const auto& entry : sleepers) found.insert(&entry);
    return found;
  }

  Sleepers sleepers;

 private:
  std::vector<long> clients_ = std::vector<long>(8);
};

}  // namespace

TEST_F(SleeperNodesTest, AReaderThatFallsAsleepIsFoundByItsDescriptor) {
  fallAsleep(7, 1);
  fallAsleep(9, 2);
  EXPECT_EQ(sleepers, (Sleepers{{7, client(1)}, {9, client(2)}}));
  wake();
  EXPECT_TRUE(sleepers.empty());
}

TEST_F(SleeperNodesTest, AWokenReadersNodeServesTheNextSleeper) {
  for (int fd = 0; fd < 20; ++fd) fallAsleep(fd);
  const auto before = places();
  wake();
  for (int fd = 100; fd < 120; ++fd) fallAsleep(fd, 3);
  EXPECT_EQ(places(), before);
  EXPECT_EQ(sleepers.at(119), client(3));
}

TEST_F(SleeperNodesTest, ADescriptorThatSleepsAlreadyGetsTheNewClient) {
  fallAsleep(5, 1);
  fallAsleep(6, 1);
  wake();
  fallAsleep(5, 2);
  fallAsleep(5, 3);
  EXPECT_EQ(sleepers, (Sleepers{{5, client(3)}}));
  fallAsleep(6, 4);
  EXPECT_EQ(sleepers, (Sleepers{{5, client(3)}, {6, client(4)}}));
}

TEST_F(SleeperNodesTest, MoreNodesThanTheLimitAreFreed) {
  const int many = static_cast<int>(SleeperNodes::limit) + 500;
  for (int round = 0; round < 2; ++round) {
    for (int fd = 0; fd < many; ++fd) fallAsleep(fd, 1);
    EXPECT_EQ(sleepers.size(), static_cast<size_t>(many));
    wake();
    EXPECT_TRUE(sleepers.empty());
  }
}

TEST_F(SleeperNodesTest, KeepingStartsOverAfterARelease) {
  fallAsleep(1);
  wake();
  SleeperNodes::release();
  SleeperNodes::release();
  for (int fd = 0; fd < 20; ++fd) fallAsleep(fd);
  const auto before = places();
  wake();
  for (int fd = 100; fd < 120; ++fd) fallAsleep(fd);
  EXPECT_EQ(places(), before);
}

TEST_F(SleeperNodesTest, EachThreadKeepsItsOwn) {
  Zorbe::Test::inParallel(4, [this] {
    Sleepers own;
    for (int round = 0; round < 1000; ++round) {
      for (int fd = 0; fd < 10; ++fd) SleeperNodes::insert(own, fd, client(1));
      EXPECT_EQ(own.size(), 10u);
      SleeperNodes::clear(own);
    }
  });
}

TEST_F(SleeperNodesTest, AMapThatOutlivesItsThreadsNodesStillWorks) {
  struct Late {
    Sleepers sleepers;
    ~Late() {
      SleeperNodes::insert(sleepers, 1, nullptr);
      SleeperNodes::clear(sleepers);
      SleeperNodes::insert(sleepers, 2, nullptr);
      EXPECT_EQ(sleepers.size(), 1u);
    }
  };
  Zorbe::Test::inParallel(1, [] {
    static thread_local Late late;  // made before the nodes and so destroyed after them
    SleeperNodes::insert(late.sleepers, 1, nullptr);
    SleeperNodes::clear(late.sleepers);
  });
}

}  // namespace Zorbe
