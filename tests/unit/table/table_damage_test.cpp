// SPDX-License-Identifier: MIT
//
// Words and files that somebody has overwritten: while no writer runs, and under one.
#include "unit/table/table_damage_fixture.h"

#include <zorbe/exceptions.h>

#include <unistd.h>

#include <filesystem>

namespace Zorbe::Test {
namespace {

using Table::SlotsHeader;
using Table::TableWriter;

// Two writers one after another: what the first one makes of it must be a table for the next.
TEST_F(TableDamage, NoRecordIsLostToAnOverwrittenNumber) {
  for (const size_t offset :
       {offsetof(SlotsHeader, published), offsetof(SlotsHeader, publishedAt),
        offsetof(SlotsHeader, indexGeneration), offsetof(SlotsHeader, logGeneration),
        offsetof(SlotsHeader, capacity), offsetof(SlotsHeader, retired),
        offsetof(SlotsHeader, origin), offsetof(SlotsHeader, maxRecords),
        offsetof(SlotsHeader, statusSelector), offsetof(Table::Prologue, incarnation)}) {
    for (const uint64_t word : {0ull, 1ull, 3ull, 7ull, 90ull, 101ull, 1000ull, 1ull << 32,
                                1ull << 62, 1ull << 63, ~0ull - 1, ~0ull}) {
      SCOPED_TRACE("offset " + std::to_string(offset) + ", word " + std::to_string(word));
      makeTable();
      const auto mapped = openReader();
      Copy follower(*mapped);
      follower.drain();
      overwrite(offset, word);
      for (uint64_t key = 1000; key < 1003; ++key) {
        const auto table = openWriter();
        ASSERT_EQ(table->start(), TableWriter::Start::kContinued) << table->whyReplaced();
        put(*table, key, key);
        table->publish();
        EXPECT_EQ(table->size(), kRecords - kRecords / 10 + key - 999);
        expectAllRecords(*table);
        const auto fresh = openReader();
        ASSERT_NE(fresh, nullptr);
        expectAllRecords(*fresh);
        EXPECT_EQ(get(*fresh, key), key);
        EXPECT_EQ(get(*mapped, key), key);
        follower.drain();
        EXPECT_EQ(follower.records[key], key);
        follower.drain();
        EXPECT_EQ(follower.records.size(), table->size());
      }
      if (HasFatalFailure()) return;
    }
  }
}

TEST_F(TableDamage, AnEmptyTableBeginsAgainAfterAnOverwrittenNumber) {
  openWriter();
  overwrite(offsetof(SlotsHeader, published), uint64_t{1} << 63);
  const auto table = openWriter();
  EXPECT_EQ(table->published(), 0u);
  put(*table, 1, 10);
  table->publish();
  EXPECT_EQ(table->published(), 1u);
}

// As if its writer had been killed after an entry of the log.
TEST_F(TableDamage, AnEntryOfTheLogWithoutAStoreIsNoChange) {
  for (const uint32_t slot : {0u, 1'000'000u}) {
    for (const bool hasIndex : {true, false}) {
      makeTable();
      auto former = openWriter();
      const uint64_t last = former->published();
      Table::release(former->log().entry(last + 1), Table::packEntry(last + 1, slot));
      former.reset();
      EXPECT_TRUE(hasIndex || std::filesystem::remove(path("buckets")));
      const auto table = openWriter();
      EXPECT_EQ(table->start(), TableWriter::Start::kContinued);
      EXPECT_EQ(table->published(), last);
      expectAllRecords(*table);
    }
  }
}

TEST_F(TableDamage, NoRecordIsLostToAnOverwrittenIndex) {
  makeTable();
  uint64_t used = 0;
  for (uint64_t bucket = 0; bucket < openWriter()->index().memory().buckets(); ++bucket) {
    const uint64_t offset = Table::kIndexEntries + 8 * bucket;
    const uint64_t entry = overwriteWord(path("buckets"), offset, Table::kTombstone);
    if (entry == 0) continue;
    ++used;
    // The entry of another slot: as many entries as there are slots in use.
    overwriteWord(path("buckets"), offset, (entry & ~uint64_t{0xffffffff}) | (used % kRecords + 1));
    for (unsigned i = 0; i < 2; ++i) {
      const auto table = openWriter();
      ASSERT_EQ(table->start(), TableWriter::Start::kContinued) << table->whyReplaced();
      expectAllRecords(*table);
      put(*table, 5, 5);
    }
  }
  EXPECT_GT(used, kRecords / 2);
}

TEST_F(TableDamage, SlotsBehindTheLastOneAreNotTakenForRecords) {
  makeTable();
  const Table::Geometry geometry(8, kValueBytes);
  // Longer and not allocated, so that the header decides; it tells of fewer slots.
  const auto length = static_cast<off_t>(geometry.fileBytes(100'000));
  ASSERT_EQ(::truncate(path("slots").c_str(), length), 0);
  overwrite(offsetof(SlotsHeader, capacity), 20);
  for (unsigned i = 0; i < 2; ++i) {
    const auto table = openWriter();
    ASSERT_EQ(table->start(), TableWriter::Start::kContinued) << table->whyReplaced();
    if (i == 0) {
      EXPECT_EQ(table->capacity(), 20u);
    }
    for (uint64_t key = 0; key < 90; ++key) put(*table, key, key + 1);
    for (uint64_t key = 0; key < 90; ++key) EXPECT_EQ(get(*table, key), key + 1);
    EXPECT_EQ(table->size(), 90u);
  }
}

// Keeps a log's mapping although another log has got its generation.
TEST_F(TableDamage, AFollowerIsNotConfusedByAGenerationThatComesTwice) {
  makeTable();
  const auto reader = openReader();
  Copy copy(*reader);
  copy.drain();
  {
    const auto table = openWriter();
    put(*table, 1, 11);
    table->publish();
    copy.drain();
  }
  overwrite(offsetof(SlotsHeader, logGeneration),
            Table::acquire(reader->header().logGeneration) - 1);
  const auto table = openWriter();
  table->publish();
  copy.drain();
  put(*table, 2, 22);
  table->publish();
  copy.drain();
  const size_t resets = copy.resets;
  for (uint64_t i = 0; i < 10; ++i) {
    put(*table, 2, i);
    table->publish();
    copy.drain();
    EXPECT_EQ(copy.records[2], i);
  }
  EXPECT_EQ(copy.resets, resets);
}

TEST_F(TableDamage, FilesThatSomebodyRemovesOrReplacesAreMadeAgain) {
  makeTable();
  const auto table = openWriter();
  const auto follower = openReader();
  Copy copy(*follower);
  copy.drain();
  uint64_t key = 1000;
  for (const bool isLog : {false, true}) {
    for (const bool isReplaced : {false, true}) {
      const char* name = isLog ? Table::logFileOf(table->log().generation()) : Table::kIndexFile;
      SCOPED_TRACE(std::string(name) + (isReplaced ? " replaced" : " removed"));
      ASSERT_EQ(::unlink(path(name).c_str()), 0);
      if (isReplaced) {
        ASSERT_EQ(::close(::creat(path(name).c_str(), 0600)), 0);
      }
      table->restoreFiles();
      ++key;
      put(*table, key, key);
      table->publish();
      const auto reader = openReader();
      ASSERT_NE(reader, nullptr);
      expectAllRecords(*reader);
      EXPECT_EQ(get(*reader, key), key);
      copy.drain();
      EXPECT_EQ(copy.records[key], key);
    }
  }
  EXPECT_EQ(copy.resets, 1u);  // the new log holds what the old one held
  const uint64_t generation = table->index().generation();
  table->restoreFiles();
  EXPECT_EQ(table->index().generation(), generation);
}

// The states of slots, under a writer that has another idea of them.
TEST_F(TableDamage, AWriterGoesByWhatItHasStoredItself) {
  const Table::Geometry geometry(8, kValueBytes);
  for (const uint64_t state : {0ull, 1ull, 2ull, 77ull}) {
    SCOPED_TRACE(state);
    makeTable();
    const auto table = openWriter();
    const uint64_t capacity = table->capacity();
    for (uint64_t slot = 0; slot < kRecords; ++slot) {
      overwrite(geometry.fileBytes(slot) + offsetof(Table::Slot, state), state);
    }
    for (uint64_t key = 0; key < kRecords; ++key) erase(*table, key);
    fill(*table, kRecords);
    EXPECT_EQ(table->size(), kRecords);
    for (uint64_t key = 0; key < kRecords; ++key) EXPECT_EQ(get(*table, key), key);
    EXPECT_EQ(table->capacity(), capacity);
    put(*table, 2000, 2000);
    EXPECT_EQ(get(*table, 2000), 2000u);
    EXPECT_EQ(table->size(), kRecords + 1);
  }
}

TEST_F(TableDamage, ANewKeyFindsNoBucketAndIsStoredAllTheSame) {
  makeTable();
  const auto table = openWriter();
  const Table::IndexMemory& index = table->index().memory();
  for (uint64_t bucket = 0; bucket < index.buckets(); ++bucket) {
    if (index.entry(bucket) == Table::kEmptyBucket)
      Table::release(index.entry(bucket), ~uint64_t{0});
  }
  put(*table, 1000, 1);
  EXPECT_EQ(table->size(), kRecords - kRecords / 10 + 1);
  expectAllRecords(*table);
}

}  // namespace
}  // namespace Zorbe::Test
