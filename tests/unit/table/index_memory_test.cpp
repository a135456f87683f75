// SPDX-License-Identifier: MIT
#include "memory/index_memory.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

using namespace Zorbe::Table;

namespace {

constexpr uint64_t kBuckets = 8;
constexpr Hash kHash{0, 42};

class IndexMemoryFind : public testing::Test {
 protected:
  // The slots that were examined; each one is what is looked for.
  bool find() {
    return index.find(kHash, [this](uint32_t slot) {
      examined.push_back(slot);
      if (examined.size() == 1) during();
      return true;
    });
  }

  std::vector<uint64_t> memory = std::vector<uint64_t>(kIndexEntries / 8 + kBuckets);
  IndexMemory index{reinterpret_cast<char*>(memory.data()), kBuckets, 1};
  std::vector<uint32_t> examined;
  std::function<void()> during = [] {};
};

}  // namespace

TEST_F(IndexMemoryFind, AnEntryThatStaysIsFoundAtOnce) {
  static_cast<void>(index.insert(kHash, 3));
  EXPECT_TRUE(find());
  EXPECT_EQ(examined, std::vector<uint32_t>{3});
}

TEST_F(IndexMemoryFind, AnEntryThatBecomesATombstoneMeanwhileIsNotFound) {
  static_cast<void>(index.insert(kHash, 3));
  during = [this] { EXPECT_TRUE(index.entomb(kHash, 3)); };
  EXPECT_FALSE(find());
}

TEST_F(IndexMemoryFind, AnEntryThatTakesItsPlaceMeanwhileIsFoundInstead) {
  static_cast<void>(index.insert(kHash, 3));
  during = [this] {
    EXPECT_TRUE(index.entomb(kHash, 3));
    static_cast<void>(index.insert(kHash, 5));
  };
  EXPECT_TRUE(find());
  EXPECT_EQ(examined, (std::vector<uint32_t>{3, 5}));
}

// Each examination takes the entry away, for another slot.
TEST_F(IndexMemoryFind, EndsWhenItsEntryChangesAgainAndAgain) {
  static_cast<void>(index.insert(kHash, 0));
  const bool found = index.find(kHash, [this](uint32_t slot) {
    examined.push_back(slot);
    EXPECT_TRUE(index.entomb(kHash, slot));
    static_cast<void>(index.insert(kHash, slot + 1));
    return true;
  });
  EXPECT_TRUE(found);
  EXPECT_EQ(examined.size(), 64u);
}

// Of two keys with the same tag.
TEST_F(IndexMemoryFind, OnlyTheEntryOfTheSlotBecomesATombstone) {
  static_cast<void>(index.insert(kHash, 3));
  static_cast<void>(index.insert(kHash, 5));
  EXPECT_FALSE(index.entomb(kHash, 7));
  EXPECT_TRUE(index.entomb(kHash, 5));
  EXPECT_FALSE(index.entomb(kHash, 5));
  EXPECT_TRUE(find());
  EXPECT_EQ(examined, std::vector<uint32_t>{3});
}

TEST_F(IndexMemoryFind, ATombstoneIsNoEntryOfAnyTag) {
  constexpr Hash kTombstones{0, static_cast<uint32_t>(kTombstone >> 32)};
  static_cast<void>(index.insert(kTombstones, 3));
  EXPECT_TRUE(index.entomb(kTombstones, 3));
  EXPECT_FALSE(index.entomb(kTombstones, 3));
  EXPECT_FALSE(index.find(kTombstones, [](uint32_t) { return true; }));
}
