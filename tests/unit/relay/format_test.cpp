// SPDX-License-Identifier: MIT
//
// How a table is kept on the server.
#include "format/format.h"

#include <zorbe/table/codec.h>

#include <gtest/gtest.h>

namespace Zorbe::Test {
namespace {

using namespace Relay;
using namespace std::string_view_literals;

TEST(RelayFormatTest, TheKeysOfATableHaveOneHashTag) {
  const Keys keys("a:", "prices");
  EXPECT_EQ(keys.records, "a:{prices}:records");
  EXPECT_EQ(keys.changes, "a:{prices}:changes");
  EXPECT_EQ(keys.about, "a:{prices}:about");
}

TEST(RelayFormatTest, IdsAreWrittenAsTheServerWritesThem) {
  const Id id{1234567890123, 45};
  EXPECT_EQ(print(id), "1234567890123-45");
  EXPECT_EQ(parseId("1234567890123-45"), id);
  const Id last{~uint64_t{0}, ~uint64_t{0}};
  EXPECT_EQ(parseId(print(last)), last);
  for (const char* text : {"", "-", "1", "1-", "-1", "a-1", "1-a", "1-1 ", " 1-1", "+1-1", "1--1",
                           "18446744073709551616-0", "1-1-1"}) {
    EXPECT_EQ(parseId(text), std::nullopt) << text;
  }
}

TEST(RelayFormatTest, IdsAreOrderedByEpochAndThenBySequence) {
  EXPECT_TRUE((Id{1, 9} < Id{2, 0}));
  EXPECT_FALSE((Id{2, 0} < Id{1, 9}));
  EXPECT_TRUE((Id{2, 0} < Id{2, 1}));
  EXPECT_FALSE((Id{2, 1} < Id{2, 1}));
  EXPECT_NE((Id{1, 2}), (Id{2, 2}));
  EXPECT_NE((Id{2, 1}), (Id{2, 2}));
}

TEST(RelayFormatTest, ARecordIsStoredBehindItsId) {
  const std::string stored = store({0x0102030405060708, 0x1112131415161718}, "ab\0c"sv);
  EXPECT_EQ(stored,
            "\x01\x02\x03\x04\x05\x06\x07\x08\x11\x12\x13\x14\x15\x16\x17\x18"
            "ab\0c"sv);
  const auto found = parseStored(stored);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->id, (Id{0x0102030405060708, 0x1112131415161718}));
  EXPECT_EQ(found->value, "ab\0c"sv);
  EXPECT_FALSE(parseStored(stored.substr(0, 15)));
  EXPECT_TRUE(parseStored(stored.substr(0, 16)));
}

TEST(RelayFormatTest, ASchemaSurvives) {
  const Table::Schema schema = Table::Codec<uint32_t, double>("key").schema();
  const std::string text = print(schema);
  EXPECT_EQ(text.substr(0, 4), "4 8\n");
  const auto found = parseSchema(text);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->keyBytes, 4u);
  EXPECT_EQ(found->valueBytes, 8u);
  EXPECT_EQ(found->description, schema.description);
  for (const char* other : {"", "4", "4 8", "4 8 ", "x 8\n", "4 x\n", "99999999999 8\n"}) {
    EXPECT_FALSE(parseSchema(other + schema.description)) << other;
  }
  EXPECT_FALSE(parseSchema(text + "garbage"));
}

TEST(RelayFormatTest, OfLargeRecordsFewerAreAskedForAtOnce) {
  Table::Schema schema;
  schema.keyBytes = 8;
  schema.valueBytes = 8;
  EXPECT_EQ(scanCount(schema), 1000u);
  schema.valueBytes = 8192;
  EXPECT_EQ(scanCount(schema), (1u << 20) / 8216);
  schema.valueBytes = 1 << 20;
  EXPECT_EQ(scanCount(schema), 1u);
}

}  // namespace
}  // namespace Zorbe::Test
