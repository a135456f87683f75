// SPDX-License-Identifier: MIT
#include "support/fixture.h"

#include <zorbe/table/codec.h>
#include <zorbe/table/error.h>

#include <unordered_set>

namespace Shop {

enum class Side : uint8_t { kBuy, kSell };

struct Quote {
  double bid;
  float ask;
  uint16_t sizes[3];
  bool open;
  Side side;
  char venue[4];
  std::array<int32_t, 2> levels;
  Zorbe::Table::Text<5> note;
};
ZORBE_FIELDS(Quote, bid, ask, sizes, open, side, venue, levels, note);

struct OldQuote {
  double bid;
  float ask;
};
ZORBE_FIELDS(OldQuote, bid, ask);

struct Pair {
  uint32_t low;
  int32_t high;
};
ZORBE_FIELDS(Pair, low, high);

struct Disordered {
  int32_t a;
  int32_t b;
};
ZORBE_FIELDS(Disordered, b, a);

}  // namespace Shop

namespace Zorbe::Test {
namespace {

using Shop::Quote;
using Table::canRead;
using Table::Codec;
using Table::Error;
using Table::Schema;
using Table::Text;
using testing::ElementsAre;
using testing::Pair;

using FieldsTest = ZorbeTest;

TEST_F(FieldsTest, DescribeEveryKindOfField) {
  const Codec<uint32_t, Quote> codec("instrument");
  EXPECT_EQ(codec.schema().description,
            "key instrument u4 0\n"
            "value bid f8 0\n"
            "value ask f4 8\n"
            "value sizes u2[3] 12\n"
            "value open b1 18\n"
            "value side u1 19\n"
            "value venue S4 20\n"
            "value levels i4[2] 24\n"
            "value note S5 32\n"
            "value note.length u1 37\n");
  EXPECT_EQ(codec.schema().keyBytes, 4u);
  EXPECT_EQ(codec.schema().valueBytes, sizeof(Quote));
}

TEST_F(FieldsTest, AKeyOfTextIsDescribedWithItsLength) {
  EXPECT_EQ((Codec<Text<12>, int>("symbol").schema().description),
            "key symbol S12 0\nkey symbol.length u1 12\nvalue value i4 0\n");
  EXPECT_EQ((Codec<Text<301>, int>("path").schema().description),
            "key path S301 0\nkey path.length u2 302\nvalue value i4 0\n");
}

TEST_F(FieldsTest, AreReadBack) {
  const Schema schema = Codec<Shop::Pair, Quote>("key").schema();
  const auto description = Table::parseDescription(schema);
  ASSERT_TRUE(description.has_value());
  ASSERT_EQ(description->key.size(), 2u);
  EXPECT_EQ(description->key[1].name, "high");
  EXPECT_EQ(description->key[1].type, 'i');
  EXPECT_EQ(description->key[1].offset, 4u);
  ASSERT_EQ(description->value.size(), 9u);
  EXPECT_EQ(description->value[2].count, 3u);
  EXPECT_EQ(description->value[2].bytes, 2u);
}

TEST_F(FieldsTest, WhatIsNoDescriptionIsRefused) {
  for (const char* text :
       {"key a u4 0\nvalue", "key a u4 0\nother b u4 0\n", "key a x4 0\n", "key a u4\n",
        "key a u4 0 7\n", "key a u 0\n", "key a u0 0\n", "key a u4[ 0\n", "key a u4[0] 0\n",
        "key a u4[2 0\n", "key a u4[2]x 0\n", "key a u4[2x 0\n", "key a u1]2] 0\n", "key a u4 1\n",
        "value a V9 0\n", "key a u4 -1\n", "value a u99999999999999999999 0\n",
        "value a u4[999999999] 0\n", "key a u4 0x\n"}) {
    EXPECT_EQ(Table::parseDescription({4, 8, text}), std::nullopt) << text;
  }
  EXPECT_TRUE(Table::parseDescription({4, 8, ""}).has_value());
}

TEST_F(FieldsTest, InAnotherOrderThanTheStructsAreRefused) {
  try {
    Codec<int, Shop::Disordered> codec("key");
    ADD_FAILURE() << "was accepted";
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::usage);
    EXPECT_THAT(error.what(), testing::HasSubstr("'a' is not in the struct's order"));
  }
}

TEST_F(FieldsTest, BeyondTheEndOfTheStructAreRefused) {
  const std::vector<Table::Field> key = {{"key", 'u', 4, 0, 0}};
  const std::vector<Table::Field> value = {{"a", 'i', 4, 0, 0}, {"b", 'i', 4, 2, 4}};
  EXPECT_NO_THROW(Table::makeSchema(key, 4, value, 12, "t"));
  try {
    Table::makeSchema(key, 4, value, 8, "t");
    ADD_FAILURE() << "was accepted";
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::usage);
    EXPECT_EQ(error.what(), std::string("table 't': the field 'b' ends behind the struct"));
  }
}

TEST_F(FieldsTest, AreRefusedWhenTheirDescriptionIsTooLong) {
  const std::vector<Table::Field> key = {{"key", 'u', 4, 0, 0}};
  std::vector<Table::Field> value;
  const auto make = [&](size_t length) {  // "key key u4 0\n" and "value ... u1 0\n"
    value = {{std::string(length - 13 - 12, 'x'), 'u', 1, 0, 0}};
    return Table::makeSchema(key, 4, value, 1, "t").description.size();
  };
  EXPECT_EQ(make(16384), 16384u);
  try {
    make(16385);
    ADD_FAILURE() << "was accepted";
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::usage);
    EXPECT_EQ(error.what(), std::string("table 't': the description of the fields has 16385 bytes; "
                                        "use shorter names"));
  }
}

TEST_F(FieldsTest, AReaderWhoseListIsThePrefixOfTheTablesReadsIt) {
  const Schema table = Codec<int, Quote>("key").schema();
  const Schema old = Codec<int, Shop::OldQuote>("key").schema();
  EXPECT_TRUE(canRead(table, table));
  EXPECT_TRUE(canRead(old, table));
  EXPECT_FALSE(canRead(table, old));
  EXPECT_FALSE(canRead((Codec<int, Shop::OldQuote>("id").schema()), table));
  EXPECT_FALSE(canRead((Codec<unsigned, Shop::OldQuote>("key").schema()), table));
  EXPECT_FALSE(canRead((Codec<int, Shop::Pair>("key").schema()), table));
  EXPECT_FALSE(canRead({4, table.valueBytes + 8, table.description}, table));
}

TEST_F(FieldsTest, BytesBetweenFieldsAreZeroed) {
  EXPECT_THAT(Table::gapsOf(Table::fieldsOf<Quote>(""), sizeof(Quote)), ElementsAre(Pair(38u, 2u)));
  EXPECT_THAT(Table::gapsOf({{"a", 'u', 1, 0, 0}, {"b", 'u', 8, 0, 8}}, 16),
              ElementsAre(Pair(1u, 7u)));
  const Codec<int, Quote> codec("key");
  alignas(Quote) unsigned char memory[sizeof(Quote)];
  std::memset(memory, 0xee, sizeof memory);
  Quote quote;
  std::memcpy(&quote, memory, sizeof quote);
  codec.withBytes(quote, [&](const void* bytes) {
    const auto* found = static_cast<const unsigned char*>(bytes);
    EXPECT_EQ(found[37], 0xee);
    EXPECT_EQ(found[38], 0);
    EXPECT_EQ(found[39], 0);
  });
}

TEST_F(FieldsTest, ValuesWithoutGapsAreNotCopied) {
  const Codec<int, Shop::Pair> codec("key");
  const Shop::Pair value{1, 2};
  codec.withBytes(value, [&](const void* bytes) { EXPECT_EQ(bytes, &value); });
}

TEST_F(FieldsTest, KeysArePrintedAsTheirFieldsAre) {
  const auto print = [](const auto& key) {
    using Key = std::decay_t<decltype(key)>;
    return Table::printKey(Codec<Key, int>("key").schema(), &key);
  };
  EXPECT_EQ(print(int64_t{-7}), "-7");
  EXPECT_EQ(print(uint8_t{200}), "200");
  EXPECT_EQ(print(int16_t{-300}), "-300");
  EXPECT_EQ(print(int8_t{-7}), "-7");
  EXPECT_EQ(print(uint16_t{60000}), "60000");
  EXPECT_EQ(print(uint64_t{18'000'000'000'000'000'000u}), "18000000000000000000");
  EXPECT_EQ(print(Text<2>("")), "''");
  EXPECT_EQ(print(Shop::Pair{7, -8}), "7,-8");
  EXPECT_EQ(print(Text<8>("a\tb")), "'a\\x09b'");
  const unsigned char bytes[4] = {1, 0, 0, 255};
  EXPECT_EQ(Table::printKey({1, 4, "key k b1 0\n"}, bytes), "1");
  EXPECT_EQ(Table::printKey({4, 4, "key k u1[4] 0\n"}, bytes), "0x010000ff");
  EXPECT_EQ(Table::printKey({4, 4, "key k i4[1] 0\n"}, bytes), "0x010000ff");
  EXPECT_EQ(Table::printKey({4, 4, "key k.x u1 0\nkey k.length u1 3\n"}, bytes), "1");
  EXPECT_EQ(Table::printKey({4, 4, "value v u4 0\n"}, bytes), "0x010000ff");
  EXPECT_EQ(Table::printKey({4, 4, "key k f4 0\n"}, bytes), "0x010000ff");
  const uint32_t key = 0x01020304;
  const unsigned char first = *reinterpret_cast<const unsigned char*>(&key);
  EXPECT_EQ(Table::printKey({4, 4, "key k V4 0\n"}, &key),
            first == 4 ? "0x04030201" : "0x01020304");
  EXPECT_EQ(Table::printKey({4, 4, "no description"}, &key),
            first == 4 ? "0x04030201" : "0x01020304");
}

TEST_F(FieldsTest, ATextThatDoesNotFitIsNoKey) {
  using Symbols = Codec<Text<4>, int>;
  EXPECT_TRUE(Symbols::encode("ABCD").has_value());
  EXPECT_FALSE(Symbols::encode("ABCDE").has_value());
  EXPECT_EQ(Symbols::decode(*Symbols::encode("ABC")).view(), "ABC");
  EXPECT_NE(*Symbols::encode("ABC"), *Symbols::encode(std::string_view("ABC\0", 4)));
}

TEST_F(FieldsTest, TextsCompareAsTheirViewsDo) {
  const Text<8> a("abc");
  const Text<8> b("abd");
  EXPECT_TRUE(a < b);
  EXPECT_TRUE(a == Text<8>("abc"));
  EXPECT_TRUE(a != b);
  EXPECT_EQ(Text<2>("abc").view(), "ab");
  EXPECT_EQ(Text<2>().view(), "");
  EXPECT_EQ((std::unordered_set<Text<8>>{a, b, a}.size()), 2u);
  std::ostringstream out;
  out << a;
  EXPECT_EQ(out.str(), "abc");
  static_assert(sizeof(Text<255>) == 256 && sizeof(Text<256>) == 258 && sizeof(Text<257>) == 260);
  static_assert(std::has_unique_object_representations_v<Text<257>>);
}

}  // namespace
}  // namespace Zorbe::Test
