// SPDX-License-Identifier: MIT
//
// When slots, index and log are made larger, and by how much.
#include "support/table_fixture.h"

#include <zorbe/exceptions.h>

#include <unistd.h>

namespace Zorbe::Test {
namespace {

using Table::TableWriter;

class GrowthTest : public TableTest {
 protected:
  void putUpTo(uint64_t keys) {
    for (; keys_ < keys; ++keys_) put(*table, keys_, keys_);
  }
  uint64_t generation() const { return table->index().generation(); }
  bool exists(const char* file) const { return ::access(path(file).c_str(), F_OK) == 0; }

  uint64_t entriesOfTheIndex() const {
    const Table::IndexMemory& index = table->index().memory();
    uint64_t entries = 0;
    for (uint64_t bucket = 0; bucket < index.buckets(); ++bucket) {
      const uint64_t entry = Table::relaxed(index.entry(bucket));
      entries += entry != Table::kEmptyBucket && entry != Table::kTombstone ? 1 : 0;
    }
    return entries;
  }

  std::unique_ptr<TableWriter> table;

 private:
  uint64_t keys_ = 0;
};

TEST_F(GrowthTest, SlotsGrowByHalfAndByTheLeastLogAtLeast) {
  table = openWriter();
  for (const auto& [keys, slots] :
       {std::pair(16u, 16u), std::pair(17u, 80u), std::pair(80u, 80u), std::pair(81u, 144u),
        std::pair(145u, 216u), std::pair(217u, 324u), std::pair(325u, 486u)}) {
    putUpTo(keys);
    EXPECT_EQ(table->capacity(), slots) << keys;
    EXPECT_EQ(Table::relaxed(table->slots().memory().header().capacity), slots);
  }
}

TEST_F(GrowthTest, WithALimitSlotsGrowToWhatRecordsAndLogNeed) {
  options.records = 4;
  options.maxRecords = 6;
  options.logEntries = 4;
  table = openWriter();
  EXPECT_EQ(table->capacity(), 4u);
  putUpTo(5);
  EXPECT_EQ(table->capacity(), 10u);
}

TEST_F(GrowthTest, AtFirstThereAreNoMoreSlotsThanRecordsMayBe) {
  const auto capacity = [&](uint64_t records, uint64_t limit) {
    static_cast<void>(::unlink(path("slots").c_str()));
    options.records = records;
    options.maxRecords = limit;
    return openWriter()->capacity();
  };
  EXPECT_EQ(capacity(0, 0), 1u);
  EXPECT_EQ(capacity(1, 0), 1u);
  EXPECT_EQ(capacity(5, 0), 5u);
  EXPECT_EQ(capacity(5, 5), 5u);
  EXPECT_EQ(capacity(5, 3), 3u);
}

TEST_F(GrowthTest, TheIndexIsBuiltAgainWhenSevenOfEightBucketsWouldBeUsed) {
  table = openWriter();
  ASSERT_EQ(table->index().memory().buckets(), 24u);
  putUpTo(21);
  EXPECT_EQ(generation(), 1u);
  putUpTo(22);
  EXPECT_EQ(generation(), 2u);
  EXPECT_EQ(table->index().memory().buckets(), 112u);
  putUpTo(98);
  EXPECT_EQ(generation(), 2u);
  putUpTo(99);
  EXPECT_EQ(generation(), 3u);
  EXPECT_EQ(Table::relaxed(table->slots().memory().header().indexGeneration), 3u);
}

TEST_F(GrowthTest, ASlotThatGetsAnotherKeyHasOneEntry) {
  options.records = 2;
  options.logEntries = 4;
  table = openWriter();
  putUpTo(2);
  for (uint64_t key = 2; key < 200; ++key) {
    erase(*table, key - 2);
    for (uint64_t i = 0; i < 6; ++i) put(*table, key - 1, i);
    put(*table, key, key);
    ASSERT_EQ(entriesOfTheIndex(), 2u) << key;
  }
  EXPECT_EQ(table->capacity(), 2u);
  EXPECT_EQ(table->index().memory().buckets(), 8u);
  EXPECT_EQ(generation(), 1u);  // its tombstones are used again
  table.reset();
  table = openWriter();
  EXPECT_EQ(generation(), 1u);
}

TEST_F(GrowthTest, TombstonesAreDroppedOnceInAWhile) {
  options.records = options.maxRecords = 100;
  options.logEntries = 4;
  table = openWriter();
  putUpTo(100);
  for (uint64_t key = 100; key < 5000; ++key) {
    erase(*table, key - 100);
    put(*table, key, key);
  }
  EXPECT_GT(generation(), 2u);
  EXPECT_LT(generation(), 500u);
  EXPECT_EQ(table->size(), 100u);
}

TEST_F(GrowthTest, TheLogGrowsToHalfOfTheSlots) {
  table = openWriter();
  putUpTo(217);
  EXPECT_EQ(table->log().generation(), 2u);
  EXPECT_EQ(table->log().entries(), 128u);
  EXPECT_EQ(table->log().first(), 153u);  // what the former one holds
  EXPECT_EQ(Table::relaxed(table->slots().memory().header().logGeneration), 2u);
  for (uint64_t sequence = 153; sequence <= 217; ++sequence) {
    EXPECT_EQ(Table::relaxed(table->log().entry(sequence)),
              Table::packEntry(sequence, static_cast<uint32_t>(sequence - 1)));
  }
  EXPECT_FALSE(exists("conquer.1"));
  EXPECT_TRUE(exists("conquer.2"));
}

TEST_F(GrowthTest, ALogThatHoldsEverythingStillDoesWhenItGrows) {
  options.records = 250;
  table = openWriter();
  EXPECT_EQ(table->log().entries(), 64u);
  for (uint64_t i = 0; i < 10; ++i) put(*table, 1, i);
  ASSERT_EQ(::unlink(path("conquer.1").c_str()), 0);
  table->restoreFiles();
  EXPECT_EQ(table->log().first(), 1u);
  EXPECT_EQ(table->log().generation(), 2u);
  for (uint64_t sequence = 1; sequence <= 10; ++sequence) {
    EXPECT_EQ(Table::relaxed(table->log().entry(sequence)), Table::packEntry(sequence, 0));
  }
  EXPECT_EQ(table->log().entries(), 64u);
  EXPECT_EQ(generation(), 1u);
}

TEST_F(GrowthTest, AnIndexThatWasRemovedIsTheNextGeneration) {
  table = openWriter();
  putUpTo(3);
  ASSERT_EQ(::unlink(path("buckets").c_str()), 0);
  table->restoreFiles();
  EXPECT_EQ(generation(), 2u);
  EXPECT_EQ(table->log().generation(), 1u);
}

TEST_F(GrowthTest, TheLogsEntriesAreAPowerOfTwo) {
  const auto entries = [&](uint64_t records, uint64_t wanted) {
    static_cast<void>(::unlink(path("slots").c_str()));
    options.records = records;
    options.logEntries = wanted;
    return openWriter()->log().entries();
  };
  EXPECT_EQ(entries(16, 0), 64u);
  EXPECT_EQ(entries(255, 0), 64u);
  EXPECT_EQ(entries(256, 0), 128u);
  EXPECT_EQ(entries(16, 1), 4u);
  EXPECT_EQ(entries(16, 4), 4u);
  EXPECT_EQ(entries(16, 5), 8u);
  EXPECT_EQ(entries(16, 64), 64u);
  EXPECT_EQ(entries(16, 65), 128u);
}

TEST_F(GrowthTest, PublishedIsWhatTheLogHoldsAtMost) {
  options.logEntries = 16;
  table = openWriter();
  for (uint64_t i = 1; i < 40; ++i) {
    put(*table, 1, i);
    EXPECT_EQ(table->published(), (i - 1) / 4 * 4) << i;
    EXPECT_EQ(table->appended(), i);
  }
  EXPECT_TRUE(erase(*table, 1));
  EXPECT_EQ(table->appended(), 40u);
  EXPECT_EQ(table->published(), 36u);
  put(*table, 1, 1);
  EXPECT_TRUE(erase(*table, 1));
  EXPECT_EQ(table->published(), 40u);
}

}  // namespace
}  // namespace Zorbe::Test
