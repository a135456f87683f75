// SPDX-License-Identifier: MIT
#include "records/scalar.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "records/bad_input.h"
#include "records/row.h"

namespace Zorbe::Tool {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using Zorbe::Table::Kind;
using Words = std::vector<std::string>;

// A table of one field, and what becomes of texts in it.
class OneField {
 public:
  explicit OneField(const std::string& type) : shape_(shapeFrom({"k:u1"}, {"v:" + type})) {}

  std::string csv(const std::string& text) {
    readCsvRow(shape_, {"7", text}, record_);
    return elementsOf(shape_, record_)[1];
  }

  std::string json(const std::string& value) {
    EXPECT_EQ(readJsonLine(shape_, R"({"k":7,"v":)" + value + "}", record_), Kind::put);
    std::string line;
    appendJsonLine(line, shape_, Kind::put, record_);
    return line.substr(11, line.size() - 13);
  }

  void expectRefused(const Words& texts, const std::string& why) {
    for (const std::string& text : texts) {
      EXPECT_THAT([&] { csv(text); }, ThrowsMessage<BadInput>(HasSubstr("v: "))) << text;
      EXPECT_THAT([&] { csv(text); }, ThrowsMessage<BadInput>(HasSubstr(why))) << text;
    }
  }

  void expectJsonRefused(const Words& values, const std::string& why) {
    for (const std::string& value : values) {
      EXPECT_THAT([&] { json(value); }, ThrowsMessage<BadInput>(HasSubstr(why))) << value;
    }
  }

 private:
  Shape shape_;
  Record record_{shape_.schema};
};

TEST(Scalar, IntegersHaveTheRangeOfTheirType) {
  const struct {
    const char* type;
    Words fit;
    Words outside;
  } cases[] = {
      {"i1", {"-128", "127", "0"}, {"-129", "128", "99999999999999999999"}},
      {"u1", {"0", "255"}, {"256"}},
      {"i2", {"-32768", "32767"}, {"-32769", "32768"}},
      {"u2", {"65535"}, {"65536"}},
      {"i4", {"-2147483648", "2147483647"}, {"-2147483649", "2147483648"}},
      {"u4", {"4294967295"}, {"4294967296"}},
      {"i8",
       {"-9223372036854775808", "9223372036854775807"},
       {"-9223372036854775809", "9223372036854775808"}},
      {"u8", {"18446744073709551615"}, {"18446744073709551616"}},
  };
  for (const auto& [type, fit, outside] : cases) {
    OneField field(type);
    for (const std::string& text : fit) {
      EXPECT_EQ(field.csv(text), text);
      EXPECT_EQ(field.json(text), text);
    }
    field.expectRefused(outside, "out of range: from ");
    field.expectJsonRefused(outside, "out of range: from ");
  }
}

TEST(Scalar, IntegersAreNothingButDigits) {
  const Words others{"", " 1", "1 ", "+1", "0x1", "1.0", "1e2", "1,", "--1", "true", "one"};
  for (const char* type : {"i1", "i8", "u1", "u8"})
    OneField(type).expectRefused(others, "no integer");
  OneField("u4").expectRefused({"-1", "-0"}, "no integer");
  OneField("i4").expectJsonRefused({"1.0", "1e2"}, "no integer");
  OneField("i4").expectJsonRefused({R"("1")", "true", "[1]", "[]"}, "an integer is needed");
  EXPECT_EQ(OneField("i4").csv("007"), "7");
}

TEST(Scalar, FloatsHaveTheFewestDigitsThatReadAsTheSame) {
  OneField wide("f8");
  OneField narrow("f4");
  EXPECT_EQ(wide.csv("0.1"), "0.1");
  EXPECT_EQ(narrow.csv("0.1"), "0.1");
  EXPECT_EQ(narrow.json("0.1"), "0.1");
  EXPECT_EQ(wide.csv("0.1000000000000000055511151231257827"), "0.1");
  EXPECT_EQ(narrow.csv("16777217"), "16777216");
  EXPECT_EQ(wide.csv("5e-324"), "5e-324");
  EXPECT_EQ(wide.csv("1.7976931348623157e308"), "1.7976931348623157e+308");
  EXPECT_EQ(wide.csv("-0"), "-0");
}

TEST(Scalar, FloatsThatAreNotFiniteAreTextsInJson) {
  for (const char* type : {"f4", "f8"}) {
    OneField field(type);
    EXPECT_EQ(field.csv("nan"), "nan");
    EXPECT_EQ(field.csv("-INF"), "-inf");
    EXPECT_EQ(field.csv("Infinity"), "inf");
    for (const char* text : {"\"NaN\"", "\"Infinity\"", "\"-Infinity\""}) {
      EXPECT_EQ(field.json(text), text);
    }
    field.expectJsonRefused({R"("1")", R"("nan")", "true", "[1]"}, "a number, \"NaN\"");
  }
}

TEST(Scalar, FloatsThatDoNotFitAreRefused) {
  OneField("f8").expectRefused({"1e309", "-1e999", "1e-400"}, "out of range");
  OneField("f4").expectRefused({"3.5e38", "1e-46"}, "out of range");
  OneField("f8").expectJsonRefused({"1e309"}, "out of range");
  OneField("f8").expectRefused({"", "1,5", "1.5 ", " 1", "+1", "0x1p3", "1e", "."}, "no number");
}

TEST(Scalar, BooleansAreTrueOrFalse) {
  OneField field("b1");
  EXPECT_EQ(field.csv("1"), "true");
  EXPECT_EQ(field.csv("false"), "false");
  EXPECT_EQ(field.json("true"), "true");
  field.expectRefused({"", "2", "True", "yes"}, "neither true nor false");
  field.expectJsonRefused({"1", R"("true")"}, "true or false is needed");
}

TEST(Scalar, TextsKeepTheirBytes) {
  OneField field("S5");
  EXPECT_EQ(field.csv(""), "");
  EXPECT_EQ(field.csv(std::string("a\0b\0\0", 5)), std::string("a\0b\0\0", 5));
  EXPECT_EQ(field.json(R"("a\u0000\u00e4")"), "\"a\\u0000\u00e4\"");
  field.expectRefused({"123456"}, "has 6 bytes, and there is room for 5");
  field.expectJsonRefused({"1", "true"}, "a text is needed");
}

TEST(Scalar, VIsHexadecimalDigits) {
  OneField field("V2");
  EXPECT_EQ(field.csv("00fA"), "00fa");
  EXPECT_EQ(field.json(R"("00fA")"), R"("00fa")");
  field.expectRefused({"", "00f", "00fag", "00fg", std::string("000\0", 4), "00fa0"},
                      "is not 4 hexadecimal digits");
}

TEST(Scalar, ATextWithoutALengthEndsWithItsZeroBytes) {
  const Shape shape = shapeOf({1, 4, "key k u1 0\nvalue v S4 0\n"});
  Record record(shape.schema);
  readCsvRow(shape, {"1", "ab"}, record);
  EXPECT_EQ(elementsOf(shape, record)[1], "ab");
  EXPECT_THAT(
      [&] {
        readCsvRow(shape, {"1", std::string("a\0", 2)}, record);
      },
      ThrowsMessage<BadInput>(HasSubstr("ends with a zero byte")));
}

// What damaged memory says is not believed.
TEST(Scalar, ALengthBeyondTheTextIsCutOff) {
  const Shape shape = shapeFrom({"k:u1"}, {"v:S2", "w:S300"});
  Record record(shape.schema);
  std::fill(record.value.begin(), record.value.end(), static_cast<unsigned char>(0xff));
  EXPECT_EQ(elementsOf(shape, record)[1].size(), 2U);
  EXPECT_EQ(elementsOf(shape, record)[2].size(), 300U);
  const Shape before = shapeOf({1, 8, "key k u1 0\nvalue v S4 4\nvalue v.length u1 0\n"});
  Record other(before.schema);
  readCsvRow(before, {"1", "abc"}, other);
  EXPECT_EQ(elementsOf(before, other)[1], "abc") << "the length is in front of the text";
}

}  // namespace
}  // namespace Zorbe::Tool
