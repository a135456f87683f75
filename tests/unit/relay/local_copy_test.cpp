// SPDX-License-Identifier: MIT
//
// Records and changes of a server that overlap give a reader each key's values in order.
#include "mirror/local_copy.h"
#include "support/fixture.h"
#include "support/loop.h"

#include <zorbe/table/codec.h>
#include <zorbe/table/in_loop.h>

#include <cstring>
#include <optional>

namespace Zorbe::Test {
namespace {

using Relay::Id;

class RelayLocalCopyTest : public ZorbeTest {
 protected:
  using Reader = Table::LoopReader<uint32_t, uint64_t>;

  Table::Options options() {
    Table::Options result;
    result.root = inRoot("");
    return result;
  }

  static std::string_view bytesOf(const uint32_t& key) {
    return {reinterpret_cast<const char*>(&key), sizeof key};
  }

  static std::string stored(uint64_t sequence, uint64_t value) {
    return Relay::store({1, sequence}, {reinterpret_cast<const char*>(&value), sizeof value});
  }

  bool take(uint32_t key, uint64_t sequence, uint64_t value) {
    const bool isTaken = copy.take(bytesOf(key), stored(sequence, value));
    copy.publish();
    return isTaken;
  }

  bool put(uint32_t key, uint64_t sequence, uint64_t value) {
    return batch(key, sequence, stored(sequence, value));
  }

  bool erase(uint32_t key, uint64_t sequence) { return batch(key, sequence, ""); }

  bool batch(uint32_t key, uint64_t sequence, const std::string& text) {
    const bool isGood = copy.change({1, sequence}, bytesOf(key), text);
    copy.endBatch({1, sequence});
    copy.publish();
    return isGood;
  }

  /// What a reader finds; 0: nothing.
  uint64_t at(uint32_t key) { return reader.get(key).value_or(0); }

  Brask::Linux::EventLoop loop;
  Relay::LocalCopy copy{"t", options(), Table::Codec<uint32_t, uint64_t>("key").schema()};
  Reader reader{"t", options()};
};

TEST_F(RelayLocalCopyTest, ARecordIsNotReplacedByAnOlderValue) {
  copy.beginTransfer({1, 5});
  EXPECT_TRUE(take(7, 8, 80));
  copy.endTransfer({1, 9});
  EXPECT_TRUE(put(7, 6, 60));
  EXPECT_EQ(at(7), 80u);
  EXPECT_TRUE(erase(7, 7));
  EXPECT_EQ(at(7), 80u);
  EXPECT_TRUE(put(7, 8, 80));
  EXPECT_TRUE(erase(7, 9));
  EXPECT_EQ(at(7), 0u);
}

TEST_F(RelayLocalCopyTest, WhatWasErasedDuringTheTransferIsErasedInItsTurn) {
  copy.beginTransfer({1, 1});
  EXPECT_TRUE(take(7, 1, 10));
  EXPECT_TRUE(take(8, 1, 10));
  copy.endTransfer({1, 1});
  EXPECT_FALSE(copy.isCatchingUp());
  // 7 was changed and then erased while the records were read; 8 was erased before.
  copy.beginTransfer({1, 5});
  copy.endTransfer({1, 7});
  EXPECT_TRUE(copy.isCatchingUp());
  EXPECT_EQ(at(7), 10u);
  EXPECT_TRUE(put(7, 6, 60));
  EXPECT_EQ(at(7), 60u);
  EXPECT_EQ(at(8), 10u);
  EXPECT_TRUE(erase(7, 7));
  EXPECT_FALSE(copy.isCatchingUp());
  EXPECT_EQ(at(7), 0u);
  EXPECT_EQ(at(8), 0u);
}

TEST_F(RelayLocalCopyTest, WhatWasPutAfterItWasReadPastStays) {
  copy.beginTransfer({1, 1});
  copy.endTransfer({1, 2});
  EXPECT_TRUE(put(7, 2, 20));
  EXPECT_FALSE(copy.isCatchingUp());
  EXPECT_EQ(at(7), 20u);
}

TEST_F(RelayLocalCopyTest, AnIdThatNoBatchHasHoldsNothingBack) {
  copy.beginTransfer({1, 1});
  EXPECT_TRUE(take(7, 1000, 10));
  copy.endTransfer({1, 2});
  EXPECT_TRUE(put(8, 2, 20));
  EXPECT_TRUE(put(7, 3, 30));
  EXPECT_EQ(at(7), 30u);
}

TEST_F(RelayLocalCopyTest, WhatIsNoneOfTheTablesIsRefused) {
  copy.beginTransfer({1, 1});
  EXPECT_FALSE(copy.take("key", stored(1, 10)));
  const uint32_t key = 7;
  EXPECT_FALSE(copy.take(bytesOf(key), "short"));
  EXPECT_FALSE(copy.take(bytesOf(key), stored(1, 10) + "x"));
  copy.endTransfer({1, 1});
  EXPECT_FALSE(copy.change({1, 2}, "key", stored(2, 10)));
  EXPECT_FALSE(copy.change({1, 2}, bytesOf(key), "short"));
  EXPECT_EQ(copy.size(), 0u);
}

}  // namespace
}  // namespace Zorbe::Test
