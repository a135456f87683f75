// SPDX-License-Identifier: MIT
//
// The bytes of a table, in numbers and not by name: programs of other versions read them.
#include "support/table_fixture.h"

#include "memory/index_memory.h"
#include "memory/layout.h"

#include <array>
#include <cstring>
#include <fstream>

namespace Zorbe::Test {
namespace {

using Table::Geometry;
using Table::IndexMemory;

using Words = std::vector<uint64_t>;

class LayoutTest : public TableTest {
 protected:
  Words wordsOf(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    Words words;
    uint64_t word = 0;
    while (file.read(reinterpret_cast<char*>(&word), sizeof word)) words.push_back(word);
    return words;
  }
  static std::string textOf(uint64_t word) { return {reinterpret_cast<const char*>(&word), 8}; }

  // The first line of each file.
  static void expectPrologue(const Words& words, const char* magic, uint64_t generation,
                             uint64_t size, const Words& slots) {
    EXPECT_EQ(textOf(words[0]), magic);
    EXPECT_EQ(words[1], 0x0102030405060708u);
    EXPECT_EQ(words[2], 1u);
    EXPECT_NE(words[3], 0u);
    for (size_t i = 3; i < 6; ++i) EXPECT_EQ(words[i], slots[i]) << i;
    EXPECT_EQ(words[6], generation);
    EXPECT_EQ(words[7], size);
  }
};

constexpr size_t kImage = 33088 / 8;
constexpr size_t kSlots = 36864 / 8;
constexpr size_t kSlot = 128 / 8;

TEST_F(LayoutTest, OfTheSlots) {
  const auto table = openWriter();
  put(*table, 77, 5);
  put(*table, 78, 6);
  put(*table, 77, 7);
  table->publish();
  const Words words = wordsOf("slots");
  ASSERT_EQ(words.size(), kSlots + 16 * kSlot);
  expectPrologue(words, "ZTSLOTS1", 0, 0, words);
  EXPECT_EQ((Words{words[8], words[9], words[10], words[11]}), (Words{8, 42, 0, 21}));
  EXPECT_EQ(words[16], 3u);  // published
  EXPECT_GT(words[17], uint64_t{1'700'000'000} * 1'000'000'000);
  EXPECT_EQ((Words{words[24], words[25], words[26], words[27], words[28]}),
            (Words{1, 1, 16, 0, 0}));
  EXPECT_EQ(textOf(words[16704 / 8]), "key u8 0");
  // The slot before its last change.
  EXPECT_EQ((Words{words[kImage], words[kImage + 1], words[kImage + 2]}), (Words{6, 0, 2}));
  EXPECT_EQ((Words{words[kImage + 3], words[kImage + 4], words[kImage + 5], words[kImage + 6]}),
            (Words{1, 1, 77, 5}));
  const Value value = Value::of(7);
  const uint64_t* slot = &words[kSlots];
  EXPECT_EQ((Words{slot[0], slot[1], slot[2], slot[3]}), (Words{4, 1, 3, 77}));
  for (size_t i = 0; i < value.words.size(); ++i) EXPECT_EQ(slot[4 + i], value.words[i]);
  uint64_t tail = 0;  // the rest of its word is zero
  std::memcpy(&tail, &value.tail, sizeof value.tail);
  EXPECT_EQ(slot[9], tail);
  slot += kSlot;
  EXPECT_EQ((Words{slot[0], slot[1], slot[2], slot[3], slot[4]}), (Words{2, 1, 2, 78, 6}));
  EXPECT_EQ(slot[kSlot], 0u);
}

TEST_F(LayoutTest, OfTheIndexAndTheLog) {
  const auto table = openWriter();
  put(*table, 77, 5);
  put(*table, 78, 6);
  erase(*table, 77);
  const Words slots = wordsOf("slots");
  EXPECT_EQ(slots[kSlots + 1], 2u);  // erased
  const Words index = wordsOf("buckets");
  ASSERT_EQ(index.size(), size_t{16 + 24});
  expectPrologue(index, "ZTINDEX1", 1, 24, slots);
  const uint64_t seed = index[8];
  EXPECT_NE(seed, 0u);
  const uint64_t key = 77;
  const Table::Hash hash = Table::Detail::hashOf(&key, 1, seed);
  EXPECT_EQ(index[16 + static_cast<size_t>(uint64_t{hash.home} * 3 >> 32) * 8],
            uint64_t{hash.tag} << 32 | 1);
  const Words log = wordsOf("conquer.1");
  ASSERT_EQ(log.size(), size_t{16 + 64});
  expectPrologue(log, "ZTCHLOG1", 1, 64, slots);
  EXPECT_EQ(log[8], 1u);  // the first sequence
  EXPECT_EQ((Words{log[16], log[17], log[18], log[19], log[20]}),
            (Words{0, uint64_t{1} << 32, uint64_t{2} << 32 | 1, uint64_t{3} << 32, 0}));
}

TEST_F(LayoutTest, OfALongerKey) {
  options.schema.keyBytes = 20;
  const auto table = openWriter();
  const uint64_t key[] = {1, 2, 3};
  const Value value = Value::of(9);
  table->put(key, &value);
  const Words words = wordsOf("slots");
  EXPECT_EQ((Words{words[kSlots + 3], words[kSlots + 4], words[kSlots + 5], words[kSlots + 6]}),
            (Words{1, 2, 3, 9}));
}

// Equal in all words but the last.
std::array<uint64_t, 128> largestKey(uint64_t number) {
  std::array<uint64_t, 128> key{};
  key.back() = number;
  return key;
}

TEST_F(LayoutTest, OfTheLargestKey) {
  options.schema.keyBytes = 1024;
  auto table = openWriter();
  for (uint64_t number = 0; number < 100; ++number) {  // 16 have room: it grows
    const Value value = Value::of(number);
    table->put(largestKey(number).data(), &value);
  }
  EXPECT_TRUE(table->erase(largestKey(7).data()));
  table.reset();
  table = openWriter();
  EXPECT_EQ(table->start(), Table::TableWriter::Start::kContinued);
  EXPECT_EQ(table->size(), 99u);
  const auto reader = openReader();
  for (uint64_t number = 0; number < 100; ++number) {
    Value value;
    ASSERT_EQ(reader->get(largestKey(number).data(), &value), number != 7);
    if (number != 7) {
      EXPECT_EQ(value.number(), number);
    }
  }
}

TEST(Layout, FollowsFromTheSizes) {
  struct Sizes {
    uint32_t key, value, keyWords, recordWords, slotBytes;
    uint64_t slots;
  };
  for (const Sizes& sizes :
       {Sizes{1, 0, 1, 3, 64, 36864}, Sizes{8, 1, 1, 4, 64, 36864}, Sizes{9, 8, 2, 5, 64, 36864},
        Sizes{8, 32, 1, 7, 64, 36864}, Sizes{8, 33, 1, 8, 128, 36864},
        Sizes{1024, 4096, 128, 642, 5184, 40960}}) {
    const Geometry geometry(sizes.key, sizes.value);
    EXPECT_EQ(geometry.keyWords, sizes.keyWords);
    EXPECT_EQ(geometry.recordWords, sizes.recordWords);
    EXPECT_EQ(geometry.slotBytes, sizes.slotBytes);
    EXPECT_EQ(geometry.slotsOffset, sizes.slots);
    EXPECT_EQ(geometry.fileBytes(3), sizes.slots + 3 * sizes.slotBytes);
  }
}

TEST(Layout, OfTheIndexFollowsFromTheSlots) {
  EXPECT_EQ(IndexMemory::bucketsFor(1), 8u);
  EXPECT_EQ(IndexMemory::bucketsFor(5), 8u);
  EXPECT_EQ(IndexMemory::bucketsFor(6), 16u);
  EXPECT_EQ(IndexMemory::bucketsFor(12), 24u);
  EXPECT_EQ(IndexMemory::bucketsFor(1000), 1336u);
  EXPECT_EQ(IndexMemory::fileBytes(8), 128u + 64u);
}

TEST(Layout, AKeysHashNeverChanges) {
  const uint64_t words[] = {1, 2, 3};
  const auto hashOf = [&](uint32_t count, uint64_t seed) {
    const Table::Hash hash = Table::Detail::hashOf(words, count, seed);
    return std::pair(hash.home, hash.tag);
  };
  EXPECT_EQ(hashOf(0, 0), std::pair(2251485218u, 2593759960u));
  EXPECT_EQ(hashOf(1, 0), std::pair(268552056u, 3383449313u));
  EXPECT_EQ(hashOf(2, 0), std::pair(585363453u, 2336517107u));
  EXPECT_EQ(hashOf(3, 7), std::pair(945960381u, 3813385078u));
  EXPECT_EQ(Table::Detail::homeLine({0, 9}, 5), 0u);
  EXPECT_EQ(Table::Detail::homeLine({0x80000000u, 9}, 5), 2u);
  EXPECT_EQ(Table::Detail::homeLine({0xffffffffu, 9}, 5), 4u);
  EXPECT_EQ(Table::Detail::entryOf({1, 9}, 6), uint64_t{9} << 32 | 7);
}

TEST(Layout, OfAnEntryOfTheLog) {
  EXPECT_EQ(Table::packEntry((uint64_t{5} << 32) + 3, 9), uint64_t{3} << 32 | 9);
  EXPECT_TRUE(Table::hasTag(uint64_t{3} << 32 | 9, (uint64_t{5} << 32) + 3));
  EXPECT_FALSE(Table::hasTag(uint64_t{3} << 32 | 9, 4));
  EXPECT_STREQ(Table::logFileOf(1), "conquer.1");
  EXPECT_STREQ(Table::logFileOf(2), "conquer.2");
  EXPECT_STREQ(Table::logFileOf(3), "conquer.1");
}

}  // namespace
}  // namespace Zorbe::Test
