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
