// SPDX-License-Identifier: MIT
//
// Where a reader finds a record: in its slot, in a newer index, in a larger file, or in the slots
// when there is no index.
#include "unit/table/damage.h"

#include "support/sanitized.h"
#include "support/table_fixture.h"

#include "fault/fault.h"

#include <zorbe/exceptions.h>

#include <unistd.h>

#include <cerrno>

namespace Zorbe::Test {
namespace {

using Table::RecordOut;
using Table::TableReader;

class LookupTest : public TableTest {
 protected:
  LookupTest() {
    table = openWriter();
    for (uint64_t key = 0; key < 10; ++key) put(*table, key, key + 100);
    reader = openReader();
  }

  // The key of a slot; nothing when there is no such slot.
  static std::optional<uint64_t> keyOf(TableReader& from, uint32_t slot) {
    uint64_t key = 0;
    RecordOut out{&key, nullptr};
    if (!from.readSlot(slot, out)) return std::nullopt;
    return key;
  }

  std::unique_ptr<Table::TableWriter> table;
  std::unique_ptr<TableReader> reader;
};

TEST_F(LookupTest, FindsTheSlotOfEachKey) {
  for (uint64_t key = 0; key < 10; ++key) {
    const auto slot = reader->find(&key);
    ASSERT_TRUE(slot.has_value());
    EXPECT_EQ(keyOf(*reader, *slot), key);
  }
  const uint64_t missing = 10;
  EXPECT_EQ(reader->find(&missing), std::nullopt);
  const uint64_t erased = 3;
  erase(*table, erased);
  EXPECT_EQ(reader->find(&erased), std::nullopt);
}

TEST_F(LookupTest, ASlotOfAnotherKeyLeadsToASearch) {
  Value value;
  for (uint64_t key = 0; key < 10; ++key) {
    EXPECT_TRUE(reader->read(static_cast<uint32_t>((key + 1) % 10), &key, &value));
    EXPECT_EQ(value.number(), key + 100);
  }
  const uint64_t missing = 10;
  EXPECT_FALSE(reader->read(3, &missing, &value));
}

TEST_F(LookupTest, WithoutAnIndexTheSlotsAreSearched) {
  const auto generation = reader->header().indexGeneration.load();
  ASSERT_EQ(::unlink(path("buckets").c_str()), 0);
  const auto clone = reader->clone();
  overwriteWord(path("slots"), offsetof(Table::SlotsHeader, indexGeneration), generation + 1);
  for (uint64_t key = 0; key < 10; ++key) {
    for (TableReader* from : {reader.get(), clone.get()}) {
      const auto slot = from->find(&key);
      ASSERT_TRUE(slot.has_value());
      EXPECT_EQ(keyOf(*from, *slot), key);
    }
  }
  const uint64_t missing = 10;
  EXPECT_EQ(reader->find(&missing), std::nullopt);
  EXPECT_EQ(clone->find(&missing), std::nullopt);
  erase(*table, 4);
  EXPECT_EQ(get(*clone, 4), std::nullopt);
}

TEST_F(LookupTest, ThereAreAsManySlotsAsTheFileSays) {
  EXPECT_EQ(keyOf(*reader, 9), 9u);
  EXPECT_EQ(keyOf(*reader, 15), 0u);  // free
  EXPECT_EQ(keyOf(*reader, 16), std::nullopt);
  EXPECT_EQ(reader->capacity(), 16u);
  for (uint64_t key = 10; key < 17; ++key) put(*table, key, key);
  EXPECT_EQ(keyOf(*reader, 16), 16u);
  EXPECT_EQ(keyOf(*reader, 79), 0u);
  EXPECT_EQ(keyOf(*reader, 80), std::nullopt);
  EXPECT_EQ(reader->capacity(), 80u);
}

TEST_F(LookupTest, AFileThatHasGrownBeyondItsMappingIsMappedAgain) {
  if (kIsSanitized) GTEST_SKIP() << "the sanitizer has an mmap() of its own";
  const auto openSmall = [this] {
    Fault::arm("mmap", 2, ENOMEM);  // with room to grow
    return openReader();
  };
  const auto first = openSmall();
  const auto second = openSmall();
  for (uint64_t key = 10; key < 300; ++key) put(*table, key, key);
  EXPECT_EQ(keyOf(*first, 299), 299u);
  EXPECT_EQ(first->capacity(), table->capacity());
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  const auto next = table->recreate();
  EXPECT_EQ(keyOf(*second, 299), 299u);  // not of the other table
  EXPECT_EQ(keyOf(*second, 9), 9u);
  EXPECT_TRUE(second->isRetired());
}

TEST_F(LookupTest, AsManyBytesAsAreWantedAreCopied) {
  EXPECT_EQ(reader->valueBytes(), kValueBytes);
  EXPECT_EQ(reader->keyWords(), 1u);
  reader->setValueBytes(8);
  Value value = Value::of(0);
  const uint64_t key = 5;
  EXPECT_TRUE(reader->get(&key, &value));
  EXPECT_EQ(value.words[0], 105u);
  EXPECT_EQ(value.words[1], Value::of(0).words[1]);
  Value other = Value::of(0);
  EXPECT_TRUE(reader->clone()->get(&key, &other));
  EXPECT_EQ(other.words[1], Value::of(0).words[1]);
}

TEST_F(LookupTest, ASlotThatContradictsTheImageIsNamed) {
  const Table::Geometry geometry(8, kValueBytes);
  overwriteWord(path("slots"), geometry.fileBytes(3), 77);
  try {
    static_cast<void>(get(*reader, 3));
    ADD_FAILURE() << "was not reported";
  } catch (const CorruptionDetectedException& corrupt) {
    EXPECT_EQ(std::string(corrupt.what()), "table 't' in " + options.place.directory +
                                               ": the guard of slot 3 contradicts the image");
  }
}

TEST_F(LookupTest, TheWritersOwnMappingIsRead) {
  const auto own = TableReader::over(*table);
  for (uint64_t key = 0; key < 10; ++key) EXPECT_EQ(get(*own, key), key + 100);
  EXPECT_EQ(get(*own, 10), std::nullopt);
}

}  // namespace
}  // namespace Zorbe::Test
