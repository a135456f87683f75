// SPDX-License-Identifier: MIT
#include "support/table_fixture.h"

#include <zorbe/exceptions.h>

#include <unistd.h>

namespace Zorbe::Test {
namespace {

using Table::Follower;
using Table::relaxed;
using Table::release;
using Table::SlotMemory;
using Table::TableReader;
using testing::IsEmpty;

using TableReaderTest = TableTest;

TEST_F(TableReaderTest, WaitsForATable) {
  EXPECT_EQ(openReader(), nullptr);
  const auto table = openWriter();
  EXPECT_NE(openReader(), nullptr);
}

TEST_F(TableReaderTest, FindsWhatIsPutBeforeAndAfterItHasOpened) {
  const auto table = openWriter();
  put(*table, 1, 10);
  const auto reader = openReader();
  EXPECT_EQ(get(*reader, 1), 10u);
  EXPECT_EQ(get(*reader, 2), std::nullopt);
  put(*table, 2, 20);
  put(*table, 1, 11);
  EXPECT_EQ(get(*reader, 1), 11u);
  EXPECT_EQ(get(*reader, 2), 20u);
  erase(*table, 1);
  EXPECT_EQ(get(*reader, 1), std::nullopt);
}

TEST_F(TableReaderTest, FollowsGrowth) {
  const auto table = openWriter();
  const auto reader = openReader();
  const auto other = reader->clone();
  for (uint64_t key = 0; key < 3000; ++key) {
    put(*table, key, key);
    ASSERT_EQ(get(*reader, key), key);
  }
  for (uint64_t key = 0; key < 3000; ++key) ASSERT_EQ(get(*other, key), key);
}

TEST_F(TableReaderTest, AHandleSavesTheSearchAndFollowsItsKey) {
  options.records = 1;
  options.logEntries = 4;
  const auto table = openWriter();
  const auto reader = openReader();
  const uint64_t key = 1;
  put(*table, key, 10);
  const auto slot = reader->find(&key);
  ASSERT_EQ(slot, 0u);
  Value value;
  EXPECT_TRUE(reader->read(*slot, &key, &value));
  EXPECT_EQ(value.number(), 10u);
  erase(*table, key);
  EXPECT_FALSE(reader->read(*slot, &key, &value));
  for (uint64_t i = 0; i < 6; ++i) put(*table, 2, i);
  put(*table, 3, 30);  // takes the slot
  EXPECT_FALSE(reader->read(*slot, &key, &value));
  put(*table, key, 11);
  EXPECT_TRUE(reader->read(*slot, &key, &value));
  EXPECT_EQ(value.number(), 11u);
}

TEST_F(TableReaderTest, GetsTheOldRecordWhileTheWriterIsInTheMiddleOfAStore) {
  const auto table = openWriter();
  put(*table, 1, 10);
  const auto reader = openReader();
  const SlotMemory& memory = table->slots().memory();
  // What a writer stopped after its first word leaves behind.
  Table::Image& image = memory.image();
  Table::Slot& slot = memory.slot(0);
  const uint64_t guard = relaxed(slot.guard);
  release(image.slot, 0);
  release(image.guard, guard);
  const Table::Word* words = &slot.state;
  for (uint32_t i = 0; i < memory.geometry().recordWords; ++i) {
    release(image.words[i], relaxed(words[i]));
  }
  release(slot.guard, guard + 1);
  release(slot.sequence, 99);
  release(slot.key[1], 12345);
  EXPECT_EQ(get(*reader, 1), 10u);
  release(image.sequence, relaxed(image.sequence) + 1);  // no writer gets so far
  EXPECT_THROW(get(*reader, 1), CorruptionDetectedException);
}

TEST_F(TableReaderTest, AMissAfterTheIndexWasReplacedSearchesTheOldSlots) {
  auto table = openWriter();
  put(*table, 1, 10);
  const auto reader = openReader();
  for (uint64_t key = 2; key < 40; ++key) put(*table, key, key);  // a newer index, not mapped yet
  ASSERT_GT(table->index().generation(), 1u);
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  const auto next = table->recreate();
  EXPECT_EQ(get(*reader, 39), 39u);
  EXPECT_EQ(get(*reader, 40), std::nullopt);
  EXPECT_TRUE(reader->isRetired());
  EXPECT_FALSE(reader->isInPlace());
}

TEST_F(TableReaderTest, AFollowerDeliversRecordsThenChanges) {
  const auto table = openWriter();
  put(*table, 1, 10);
  put(*table, 2, 20);
  table->publish();
  const auto reader = openReader();
  Follower follower(*reader);
  uint64_t key = 0;
  Value value;
  EXPECT_EQ(follower.next(&key, &value)->kind, Follower::Kind::kReset);
  EXPECT_EQ(follower.next(&key, &value)->kind, Follower::Kind::kPut);
  EXPECT_EQ(follower.next(&key, &value)->kind, Follower::Kind::kPut);
  EXPECT_EQ(follower.next(&key, &value)->kind, Follower::Kind::kComplete);
  EXPECT_EQ(follower.next(&key, &value), std::nullopt);
  EXPECT_EQ(follower.position(), 2u);
  put(*table, 1, 11);
  put(*table, 1, 12);
  erase(*table, 2);
  EXPECT_EQ(follower.next(&key, &value), std::nullopt);
  table->publish();
  EXPECT_EQ(follower.lag(), 3u);
  auto change = follower.next(&key, &value);
  EXPECT_EQ(change->kind, Follower::Kind::kPut);
  EXPECT_EQ(change->sequence, 4u);
  EXPECT_EQ(key, 1u);
  EXPECT_EQ(value.number(), 12u);
  change = follower.next(&key, &value);
  EXPECT_EQ(change->kind, Follower::Kind::kErased);
  EXPECT_EQ(key, 2u);
  EXPECT_EQ(follower.next(&key, &value), std::nullopt);
  EXPECT_EQ(follower.position(), 5u);
}

TEST_F(TableReaderTest, AKeyThatChangedAfterThePassComesOnceInIt) {
  const auto table = openWriter();
  const auto reader = openReader();
  Copy copy(*reader);
  copy.drain();
  for (uint64_t i = 0; i < 3; ++i) put(*table, 1, i);
  put(*table, 2, 20);
  table->publish();
  put(*table, 1, 99);  // later than what is published
  EXPECT_EQ(copy.drain(), 2u);
  EXPECT_EQ(copy.records[1], 99u);
  table->publish();
  EXPECT_EQ(copy.drain(), 1u);
}

TEST_F(TableReaderTest, AFollowerThatWasOverrunBeginsAgain) {
  options.logEntries = 8;
  const auto table = openWriter();
  const auto reader = openReader();
  Copy copy(*reader);
  copy.drain();
  for (uint64_t i = 0; i < 9; ++i) put(*table, i % 3, i);
  table->publish();
  copy.drain();
  EXPECT_EQ(copy.resets, 2u);
  EXPECT_EQ(copy.records.size(), 3u);
  EXPECT_EQ(copy.records[2], 8u);
}

TEST_F(TableReaderTest, AFollowerFindsInALargerLogWhatItHasNotSeen) {
  const auto table = openWriter();
  const auto reader = openReader();
  Copy copy(*reader);
  copy.drain();
  for (uint64_t key = 0; key < 400; ++key) {
    put(*table, key, key);
    if (key % 30 != 0) continue;
    table->publish();
    copy.drain();
  }
  table->publish();
  copy.drain();
  ASSERT_GT(table->log().generation(), 1u);
  EXPECT_EQ(copy.resets, 1u);
  EXPECT_EQ(copy.records.size(), 400u);
}

// A writer that changes a quarter of the log between two slices of a scan.
TEST_F(TableReaderTest, AScanUnderAFastWriterIsNotBegunAgain) {
  options.records = 4096;
  options.logEntries = 512;
  const auto table = openWriter();
  fill(*table, 4000);
  table->publish();
  const auto reader = openReader();
  Copy copy(*reader);
  for (uint64_t step = 0; copy.step(); ++step) {
    if (step < 20000) put(*table, step % 4000, step);
    table->publish();
  }
  EXPECT_EQ(copy.resets, 1u);
  EXPECT_EQ(copy.records.size(), 4000u);
  for (uint64_t key = 0; key < 4000; ++key) ASSERT_EQ(copy.records[key], *get(*table, key));
}

}  // namespace
}  // namespace Zorbe::Test
