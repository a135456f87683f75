// SPDX-License-Identifier: MIT
//
// What a writer keeps of the table that it takes over, and what it makes again: followers begin
// again with a new log only.
#include "unit/table/damage.h"

#include "memory/status.h"

#include "support/table_fixture.h"

#include <unistd.h>

namespace Zorbe::Test {
namespace {

using Table::Geometry;
using Table::Slot;
using Table::SlotsHeader;
using Table::TableWriter;

constexpr uint64_t kMaxSequence = uint64_t{1} << 62;

class TakeoverTest : public TableTest {
 protected:
  // Leaves a table with these keys, of which nothing is published.
  void makeTable(uint64_t keys) {
    const auto table = openWriter();
    for (uint64_t key = 0; key < keys; ++key) put(*table, key, key + 100);
  }

  void overwrite(size_t offset, uint64_t word) { overwriteWord(path("slots"), offset, word); }
  void overwriteSlot(uint64_t slot, size_t offset, uint64_t word) {
    overwrite(static_cast<size_t>(geometry_.fileBytes(slot)) + offset, word);
  }
  void overwriteBucket(uint64_t bucket, uint64_t word) {
    overwriteWord(path("buckets"), Table::kIndexEntries + 8 * bucket, word);
  }
  void overwriteEntry(uint64_t sequence, uint64_t word) {
    overwriteWord(path("conquer.1"), Table::kLogEntries + 8 * (sequence % 64), word);
  }

  // The bucket of a key, and one that is empty.
  static uint64_t bucketOf(const TableWriter& table, uint32_t slot) {
    const Table::IndexMemory& index = table.index().memory();
    for (uint64_t bucket = 0; bucket < index.buckets(); ++bucket) {
      if (static_cast<uint32_t>(Table::relaxed(index.entry(bucket))) == slot + 1) return bucket;
    }
    ADD_FAILURE() << "slot " << slot << " has no entry";
    return 0;
  }
  static uint64_t emptyBucket(const TableWriter& table) {
    const Table::IndexMemory& index = table.index().memory();
    uint64_t bucket = 0;
    while (Table::relaxed(index.entry(bucket)) != Table::kEmptyBucket) ++bucket;
    return bucket;
  }

  std::unique_ptr<TableWriter> takeOver(uint64_t indexGeneration, uint64_t logGeneration) {
    auto table = openWriter();
    EXPECT_EQ(table->start(), TableWriter::Start::kContinued) << table->whyReplaced();
    EXPECT_EQ(table->index().generation(), indexGeneration);
    EXPECT_EQ(table->log().generation(), logGeneration);
    const SlotsHeader& header = table->slots().memory().header();
    EXPECT_EQ(Table::relaxed(header.indexGeneration), indexGeneration);
    EXPECT_EQ(Table::relaxed(header.logGeneration), logGeneration);
    return table;
  }

  void expectReplaced(const std::string& why) {
    const auto table = openWriter();
    EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
    EXPECT_THAT(table->whyReplaced(), testing::EndsWith(": " + why));
    EXPECT_EQ(table->size(), 0u);
  }

  const Geometry geometry_{8, kValueBytes};
};

TEST_F(TakeoverTest, WhatWasNotPublishedIsKeptWithItsLog) {
  for (uint64_t keys = 1; keys < 5; ++keys) {
    SCOPED_TRACE(keys);
    static_cast<void>(::unlink(path("slots").c_str()));
    makeTable(keys);
    const auto table = takeOver(1, 1);
    EXPECT_EQ(table->published(), keys);
    EXPECT_EQ(table->size(), keys);
    EXPECT_EQ(Table::relaxed(table->slots().memory().header().published), keys);
  }
}

TEST_F(TakeoverTest, AWholeLogThatWasNotPublishedIsKept) {
  options.logEntries = 4;
  makeTable(4);
  overwrite(offsetof(SlotsHeader, published), 0);
  EXPECT_EQ(takeOver(1, 1)->published(), 4u);
}

TEST_F(TakeoverTest, AChangeThatWasNotBegunIsNotKept) {
  makeTable(3);
  overwriteEntry(4, Table::packEntry(4, 1));  // the entry comes before the store
  const auto table = takeOver(1, 1);
  EXPECT_EQ(table->published(), 3u);
  EXPECT_EQ(get(*table, 1), 101u);
}

TEST_F(TakeoverTest, AFreeSlotGetsNoEntryOfTheIndex) {
  put(*openWriter(), 5, 50);  // a free slot has the words of key 0
  overwriteEntry(2, Table::packEntry(2, 7));
  const auto table = takeOver(1, 1);
  EXPECT_EQ(table->published(), 1u);
  EXPECT_EQ(get(*table, 0), std::nullopt);
}

TEST_F(TakeoverTest, WithoutAnIndexWhatWasNotPublishedIsKept) {
  makeTable(3);
  ASSERT_EQ(::unlink(path("buckets").c_str()), 0);
  const auto table = takeOver(2, 1);
  EXPECT_EQ(table->published(), 3u);
  for (uint64_t key = 0; key < 3; ++key) EXPECT_EQ(get(*table, key), key + 100);
}

TEST_F(TakeoverTest, AnEntryOfTheLogForASlotThatThereIsNotIsNoChange) {
  options.records = 32;  // the last slot ends with a page
  makeTable(3);
  ASSERT_EQ(geometry_.fileBytes(32) % Table::kPage, 0u);
  overwriteEntry(4, Table::packEntry(4, 32));
  EXPECT_EQ(takeOver(1, 1)->published(), 3u);
}

TEST_F(TakeoverTest, ANewKeyIsEnteredInTheIndexThatIsThere) {
  makeTable(3);
  overwriteBucket(bucketOf(*openWriter(), 2), Table::kEmptyBucket);
  overwrite(offsetof(SlotsHeader, published), 2);
  const auto table = takeOver(1, 1);
  EXPECT_EQ(get(*table, 2), 102u);
  EXPECT_EQ(table->published(), 3u);
}

TEST_F(TakeoverTest, AnIndexThatLacksASlotOrHasOneTooManyIsBuiltAgain) {
  makeTable(3);
  overwriteBucket(bucketOf(*openWriter(), 2), Table::kEmptyBucket);
  EXPECT_EQ(get(*takeOver(2, 1), 2), 102u);
  uint64_t empty = emptyBucket(*openWriter());
  overwriteBucket(empty, uint64_t{1} << 32 | 9);  // of a slot that is free
  takeOver(3, 1);
  empty = emptyBucket(*openWriter());
  overwriteBucket(empty, Table::kTombstone);  // is none
  takeOver(3, 1);
}

TEST_F(TakeoverTest, AnEntryForEachSlotIsLookedFor) {
  makeTable(3);
  for (uint64_t generation = 1; generation < 4; ++generation) {
    const auto slot = static_cast<uint32_t>(generation - 1);
    overwriteBucket(bucketOf(*openWriter(), slot), uint64_t{1} << 32 | 3);
    const auto table = takeOver(generation + 1, 1);
    for (uint64_t key = 0; key < 3; ++key) EXPECT_EQ(get(*table, key), key + 100);
  }
}

TEST_F(TakeoverTest, AnIndexThatEndsWithAPageIsReadToItsEnd) {
  options.records = 366;
  makeTable(3);
  struct stat status {};
  ASSERT_EQ(::stat(path("buckets").c_str(), &status), 0);
  ASSERT_EQ(status.st_size, 4096);
  takeOver(1, 1);
}

TEST_F(TakeoverTest, TheIndexHasAsMuchRoomAsBefore) {
  makeTable(20);  // of 24 buckets 21 are used at most
  const auto table = takeOver(1, 1);
  put(*table, 20, 20);
  EXPECT_EQ(table->index().generation(), 1u);
  put(*table, 21, 21);
  EXPECT_EQ(table->index().generation(), 2u);
}

TEST_F(TakeoverTest, ALogThatEndsEarlierIsReplacedByOneThatBeginsWithTheNextChange) {
  makeTable(3);
  overwrite(offsetof(SlotsHeader, published), 1);
  overwriteEntry(2, 0);
  const auto table = takeOver(1, 2);
  EXPECT_EQ(table->published(), 3u);
  EXPECT_EQ(table->log().first(), 4u);
  EXPECT_EQ(::access(path("conquer.1").c_str(), F_OK), -1);
  EXPECT_EQ(::access(path("conquer.2").c_str(), F_OK), 0);
}

TEST_F(TakeoverTest, ALogOfTheOtherGenerationIsRemoved) {
  makeTable(1);
  ASSERT_EQ(::link(path("conquer.1").c_str(), path("conquer.2").c_str()), 0);
  takeOver(1, 1);
  EXPECT_EQ(::access(path("conquer.2").c_str(), F_OK), -1);
}

TEST_F(TakeoverTest, AnIndexOfALaterGenerationIsTaken) {
  makeTable(3);
  overwriteWord(path("buckets"), offsetof(Table::Prologue, generation), 5);
  takeOver(5, 1);
}

TEST_F(TakeoverTest, ATableIsNotRetiredAnyMore) {
  makeTable(1);
  overwrite(offsetof(SlotsHeader, retired), 1);
  EXPECT_EQ(Table::relaxed(takeOver(1, 1)->slots().memory().header().retired), 0u);
}

TEST_F(TakeoverTest, EachIsCountedAndATableThatIsMadeAgainKeepsTheCount) {
  const auto takeovers = [](const TableWriter& table) {
    return loadStatus(table.slots().memory().header())->takeovers;
  };
  for (uint64_t count = 0; count < 3; ++count) EXPECT_EQ(takeovers(*openWriter()), count);
  const auto table = openWriter();
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  EXPECT_EQ(takeovers(*table->recreate()), 3u);
}

TEST_F(TakeoverTest, NobodyIsConnected) {
  makeTable(1);
  overwrite(offsetof(SlotsHeader, status) + 8, 7);
  EXPECT_EQ(loadStatus(takeOver(1, 1)->slots().memory().header())->connections, 0u);
}

TEST_F(TakeoverTest, SlotsAreUsedAgainInTheOrderOfTheirErasure) {
  options.records = 3;
  options.logEntries = 4;
  {
    const auto table = openWriter();
    for (uint64_t key = 0; key < 3; ++key) put(*table, key, key);
    for (const uint64_t key : {2u, 0u}) erase(*table, key);
    for (uint64_t i = 0; i < 6; ++i) put(*table, 1, i);
  }
  const auto table = openWriter();
  EXPECT_EQ(table->size(), 1u);
  put(*table, 10, 10);
  EXPECT_EQ(table->slots().memory().stateOf(2), Table::kLive);
  EXPECT_EQ(table->slots().memory().stateOf(0), Table::kErased);
  put(*table, 11, 11);
  EXPECT_EQ(table->slots().memory().stateOf(0), Table::kLive);
  EXPECT_EQ(table->capacity(), 3u);
}

TEST_F(TakeoverTest, AnEmptyTableKeepsItsSequence) {
  options.firstSequence = 70;
  openWriter();
  EXPECT_EQ(takeOver(1, 1)->published(), 70u);
  overwrite(offsetof(SlotsHeader, published), kMaxSequence);
  EXPECT_EQ(takeOver(1, 1)->published(), kMaxSequence);
  overwrite(offsetof(SlotsHeader, published), kMaxSequence + 1);
  EXPECT_EQ(takeOver(1, 2)->published(), 0u);
}

TEST_F(TakeoverTest, WhatIsNoRecordReplacesTheTable) {
  const struct {
    size_t offset;
    uint64_t word;
  } damages[] = {{offsetof(Slot, guard), 3},
                 {offsetof(Slot, state), 3},
                 {offsetof(Slot, sequence), kMaxSequence + 1}};
  for (const auto& damage : damages) {
    makeTable(3);
    overwriteSlot(1, damage.offset, damage.word);
    expectReplaced("slot 1 holds no record");
  }
  makeTable(3);
  overwriteSlot(2, offsetof(Slot, sequence), kMaxSequence);
  EXPECT_EQ(takeOver(1, 2)->published(), kMaxSequence);
}

TEST_F(TakeoverTest, AKeyThatTwoSlotsHaveReplacesTheTable) {
  makeTable(3);
  overwriteSlot(1, offsetof(Slot, key), 2);
  expectReplaced("slot 2 repeats a key");
}

TEST_F(TakeoverTest, AnImageThatIsNoneReplacesTheTable) {
  makeTable(3);
  overwrite(Geometry::imageOffset() + offsetof(Table::Image, guard), 3);
  expectReplaced("the image of a record that was being written is not one");
}

}  // namespace
}  // namespace Zorbe::Test
