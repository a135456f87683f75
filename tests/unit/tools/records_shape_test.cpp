// SPDX-License-Identifier: MIT
#include "records/shape.h"

#include <gmock/gmock.h>
#include <zorbe/table/codec.h>

#include <string>
#include <vector>

#include "records/bad_input.h"

namespace Zorbe::Tool {

struct Trade {
  int64_t price;
  uint32_t size;
  bool open;
  uint16_t levels[3];
  Zorbe::Table::Text<300> note;
  double ratio;
  char venue[4];
};
ZORBE_FIELDS(Trade, price, size, open, levels, note, ratio, venue);

struct TradeKey {
  uint32_t id;
  uint32_t part;
};
ZORBE_FIELDS(TradeKey, id, part);

struct Twice {
  uint32_t id;
};
ZORBE_FIELDS(Twice, id);

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using Zorbe::Table::Codec;
using Zorbe::Table::Schema;
using Zorbe::Table::Text;
using Words = std::vector<std::string>;

void expectRefused(const Words& key, const Words& value, const std::string& why) {
  EXPECT_THAT([&] { shapeFrom(key, value); }, ThrowsMessage<BadInput>(HasSubstr(why)));
}

TEST(Shape, OptionsNameTheLayoutThatAProgramHas) {
  struct Quote {
    int64_t price;
    uint32_t size;
  };
  const Schema schema = shapeFrom({"symbol:S15"}, {"price:i8", "size:u4"}).schema;
  const Schema wanted = Codec<Text<15>, int64_t>("symbol").schema();
  EXPECT_EQ(schema.keyBytes, wanted.keyBytes);
  EXPECT_EQ(schema.valueBytes, sizeof(Quote));
  EXPECT_EQ(schema.description,
            "key symbol S15 0\nkey symbol.length u1 15\nvalue price i8 0\nvalue size u4 8\n");
}

TEST(Shape, AlignsFieldsAsCppDoes) {
  Schema wanted = Codec<TradeKey, Trade>("").schema();
  Schema schema = shapeFrom({"id:u4", "part:u4"}, {"price:i8", "size:u4", "open:b1", "levels:u2[3]",
                                                   "note:S300", "ratio:f8", "venue:V4"})
                      .schema;
  const size_t venue = wanted.description.find("venue S4");
  wanted.description.replace(venue, 8, "venue V4");  // an array of char has no length
  EXPECT_EQ(schema.description, wanted.description);
  EXPECT_EQ(schema.keyBytes, wanted.keyBytes);
  EXPECT_EQ(schema.valueBytes, wanted.valueBytes);
}

TEST(Shape, ATextAndItsLengthAreOneColumn) {
  const Shape shape = shapeOf(Codec<Text<300>, Trade>("name").schema());
  EXPECT_EQ(optionsOf(shape),
            "--key name:S300 --field price:i8 --field size:u4 --field open:b1 --field levels:u2[3] "
            "--field note:S300 --field ratio:f8 --field venue:S4");
}

TEST(Shape, TheOptionsOfATableNameItsColumns) {
  const Shape shape = shapeOf(Codec<TradeKey, Trade>("").schema());
  EXPECT_TRUE(hasSameColumns(
      shape, shapeFrom({"id:u4", "part:u4"}, {"price:i8", "size:u4", "open:b1", "levels:u2[3]",
                                              "note:S300", "ratio:f8", "venue:S4"})));
  EXPECT_FALSE(hasSameColumns(shape, shapeFrom({"id:u4", "part:u4"}, {"price:i8"})));
  EXPECT_FALSE(hasSameColumns(shapeFrom({"a:u4"}, {"b:u4"}), shapeFrom({"a:u4"}, {"b:i4"})));
  EXPECT_FALSE(hasSameColumns(shapeFrom({"a:u4"}, {"b:u4"}), shapeFrom({"a:u4"}, {"b:u4[1]"})));
}

TEST(Shape, BytesWithoutADescriptionAreHexadecimal) {
  EXPECT_EQ(optionsOf(shapeOf({3, 5, ""})), "--key key:V3 --field value:V5");
  EXPECT_EQ(optionsOf(shapeOf({3, 5, "nonsense"})), "--key key:V3 --field value:V5");
  EXPECT_EQ(optionsOf(shapeOf({3, 5, "key a u1 3\n"})), "--key key:V3 --field value:V5");
  EXPECT_EQ(optionsOf(shapeOf({4, 5, "key a u4 0\n"})), "--key a:u4 --field value:V5");
}

TEST(Shape, TypesOfOtherSizesAreHexadecimal) {
  EXPECT_EQ(optionsOf(shapeOf({4, 9, "key a u3 0\nvalue b f2 0\nvalue c b4[2] 0\n"})),
            "--key a:V3 --field b:V2 --field c:V4[2]");
}

TEST(Shape, AFieldWithTheNameOfTheKeyGetsAPrefix) {
  EXPECT_EQ(optionsOf(shapeOf(Codec<TradeKey, Twice>("").schema())),
            "--key id:u4 --key part:u4 --field value.id:u4");
}

TEST(Shape, RefusesNamesWithAMeaningInJson) {
  for (const char* name : {"erased", "reset", "complete"}) {
    expectRefused({"k:u4"}, {std::string(name) + ":u4"}, "has a meaning in JSON");
    expectRefused({std::string(name) + ":u4"}, {"v:u4"}, "has a meaning in JSON");
  }
}

TEST(Shape, RefusesNamesThatNoDescriptionCanHold) {
  expectRefused({"k:u4"}, {":u4"}, "is no name");
  expectRefused({"k:u4"}, {"a b:u4"}, "is no name");
  expectRefused({"k:u4"}, {"a\nvalue b:u4"}, "is no name");
  expectRefused({"k:u4"}, {"a.length:u1"}, "belongs to a text");
  expectRefused({"k:u4"}, {"k:u4"}, "two fields are named 'k'");
}

TEST(Shape, RefusesWhatIsNoType) {
  for (const char* type : {"", "u", "u3", "f2", "b2", "S0", "V0", "x4", "u4[0]", "u4[", "u4 ", "-1",
                           "u4 0", "S99999999999", "u8[131073]", "u4\nvalue c u4"}) {
    expectRefused({"k:u4"}, {std::string("v:") + type}, "is no type");
  }
  expectRefused({"k:u4"}, {"v:S65536"}, "at most 65535 bytes");
  expectRefused({"k:u4"}, {"v:S4[2]"}, "no arrays of it");
  expectRefused({"k:u4"}, {"v"}, "NAME:TYPE");
}

TEST(Shape, RefusesKeysThatNoTableHas) {
  expectRefused({"k:f8"}, {"v:u4"}, "floating-point");
  expectRefused({"k:S1024"}, {"v:u4"}, "the key has 1026 bytes; at most 1024");
  expectRefused({"k:u4"}, {"v:V1048576", "w:V1048576", "x:u1"}, "the record has 2097152 bytes");
}

}  // namespace
}  // namespace Zorbe::Tool
