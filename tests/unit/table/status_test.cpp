// SPDX-License-Identifier: MIT
#include "memory/status.h"

#include "support/fixture.h"

#include <memory>

namespace Zorbe::Test {
namespace {

using Table::loadStatus;
using Table::PeerState;
using Table::SlotsHeader;
using Table::Status;
using Table::storeStatus;

class StatusTest : public ZorbeTest {
 protected:
  std::unique_ptr<SlotsHeader> header = std::make_unique<SlotsHeader>();
};

TEST_F(StatusTest, IsEmptyAtFirst) {
  const auto status = loadStatus(*header);
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(status->connections, 0u);
  EXPECT_TRUE(status->peers.empty());
}

TEST_F(StatusTest, IsReadAsItWasStored) {
  storeStatus(*header,
              {7, 3, {{1, 2, 3, PeerState::behind, 4}, {5, 6, 7, PeerState::asleep, 8}}, 9, 0});
  for (int i = 0; i < 3; ++i) {
    const auto status = loadStatus(*header);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(status->now, 7);
    EXPECT_EQ(status->connections, 3u);
    EXPECT_EQ(status->kicks, 9u);
    ASSERT_EQ(status->peers.size(), 2u);
    EXPECT_EQ(status->peers[0].pid, 1u);
    EXPECT_EQ(status->peers[0].uid, 2u);
    EXPECT_EQ(status->peers[0].reported, 3u);
    EXPECT_EQ(status->peers[0].state, PeerState::behind);
    EXPECT_EQ(status->peers[0].since, 4);
    EXPECT_EQ(status->peers[1].state, PeerState::asleep);
  }
}

TEST_F(StatusTest, OfMoreConnectionsThanThereIsRoomForTheNumberIsKnown) {
  Status status;
  status.connections = 1000;
  status.peers.resize(1000);
  storeStatus(*header, status);
  const auto read = loadStatus(*header);
  EXPECT_EQ(read->connections, 1000u);
  EXPECT_EQ(read->peers.size(), Table::kMaxPeers);
}

TEST_F(StatusTest, WhateverTheMemoryHoldsIsRead) {
  for (auto& copy : header->status) {
    for (Table::Word& word : copy) word.store(~0ull);
  }
  const auto read = loadStatus(*header);
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->peers.size(), Table::kMaxPeers);
  EXPECT_EQ(read->peers[0].state, PeerState::watcher);
}

}  // namespace
}  // namespace Zorbe::Test
