// SPDX-License-Identifier: MIT
#include "records/json_text.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "records/bad_input.h"
#include "support/random.h"

namespace Zorbe::Tool {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using Zorbe::Test::Random;
using Json = nlohmann::json;

std::string written(const std::string& bytes) {
  std::string text;
  appendJsonText(text, bytes);
  return text;
}

std::string read(const std::string& text) {
  return parseJsonRow("{\"a\":" + text + "}").at(0).values.at(0).text;
}

void expectRefused(const std::string& line, const std::string& why) {
  EXPECT_THAT([&] { parseJsonRow(line); }, ThrowsMessage<BadInput>(HasSubstr(why))) << line;
}

TEST(JsonText, EscapesWhatActsOnATerminal) {
  EXPECT_EQ(written("a\"\\\b\f\n\r\t\x1b\x7f"), R"("a\"\\\b\f\n\r\t\u001b\u007f")");
  EXPECT_EQ(written("\u009b\u00a0\u202e\u2066\u2027"), "\"\\u009b\u00a0\\u202e\\u2066\u2027\"");
  EXPECT_EQ(written("\u00e4\u20ac\U0001f600"), "\"\u00e4\u20ac\U0001f600\"");
}

TEST(JsonText, BytesThatAreNotUtf8AreLoneSurrogates) {
  EXPECT_EQ(written("a\xff\x80z"), R"("a\udcff\udc80z")");
  EXPECT_EQ(written("\xed\xb2\x80"), R"("\udced\udcb2\udc80")");  // a surrogate as bytes
  EXPECT_EQ(read(R"("a\udcff\uDC80z")"), "a\xff\x80z");
}

TEST(JsonText, EveryTextIsReadAsItWasWritten) {
  Random random(4);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes;
    const unsigned length = random.below(12);
    for (unsigned i = 0; i < length; ++i) {
      bytes += random.percent(50) ? static_cast<char>(random.next())
                                  : "\xed\xa0\x80\xf0\x9f\x98\xc3\xb2\\u\"\0"[random.below(12)];
    }
    EXPECT_EQ(read(written(bytes)), bytes) << written(bytes);
  }
}

TEST(JsonText, ReadsEveryEscapeSequence) {
  EXPECT_EQ(read(R"("\"\\\/\b\f\n\r\t\u0041\u00e4\u20AC\ud83d\ude00")"),
            "\"\\/\b\f\n\r\tA\u00e4\u20ac\U0001f600");
}

TEST(JsonRow, RefusesWhatIsNoJson) {
  for (const char* line : {"",
                           "  ",
                           "[]",
                           "1",
                           "{",
                           "{\"a\"}",
                           "{\"a\":}",
                           "{\"a\":1,}",
                           "{,}",
                           "{\"a\":1}x",
                           "{\"a\":1}{}",
                           "{a:1}",
                           "{\"a\":01}",
                           "{\"a\":1.}",
                           "{\"a\":.5}",
                           "{\"a\":1e}",
                           "{\"a\":+1}",
                           "{\"a\":-}",
                           "{\"a\":NaN}",
                           "{\"a\":[1,]}",
                           "{\"a\":[1}",
                           "{\"a\":truex}",
                           "{\"a\":\"\\x\"}"}) {
    EXPECT_THROW(parseJsonRow(line), BadInput) << line;
    EXPECT_FALSE(Json::accept(line) && Json::parse(line).is_object()) << line;
  }
}

TEST(JsonRow, RefusesWhatNoColumnHolds) {
  expectRefused(R"({"a":null})", "a text, a number, true or false");
  expectRefused(R"({"a":{}})", "a text, a number, true or false");
  expectRefused(R"({"a":[[1]]})", "a text, a number, true or false");
}

TEST(JsonRow, RefusesTextsThatAreNone) {
  expectRefused("{\"a\":\"\n\"}", "a control character");
  expectRefused("{\"a\":\"\xff\"}", "not valid UTF-8");
  expectRefused(R"({"a":"\u12x4"})", "four hexadecimal digits");
  expectRefused(R"({"a":"\u12)", "four hexadecimal digits");
  for (const char* text : {R"("\ud83d")", R"("\ud83dx")", R"("\ud83d\n")", R"("\ud83d\u0041")",
                           R"("\udc00")", R"("\udc7f")", R"("\udd00")"}) {
    expectRefused("{\"a\":" + std::string(text) + "}", "half of a pair");
  }
  expectRefused(R"({"a":"b)", "a text does not end");
}

TEST(JsonRow, SaysWhereItIsWrong) {
  expectRefused(R"({"a":1 "b":2})", "a comma or } is needed at byte 8");
}

bool isRow(const Json& json) {
  const auto isScalar = [](const Json& value) { return value.is_primitive() && !value.is_null(); };
  if (!json.is_object()) return false;
  for (const auto& [name, value] : json.items()) {
    if (isScalar(value)) continue;
    if (!value.is_array()) return false;
    for (const Json& element : value) {
      if (!isScalar(element)) return false;
    }
  }
  return true;
}

// Rows with a few characters exchanged: what is a row and what it holds, another parser agrees.
TEST(JsonRow, AgreesWithAnotherParser) {
  const std::string rows[] = {R"({"a":-12.5e+3,"b":[1,2,"x"],"c":true})",
                              R"({"text":"a\u00e4\n\"","n":0, "m" :[ ],"f":false})"};
  const std::string characters = "{}[]:,\"\\ -+.0129eEutrfalsn\x01\xc3\xa4";
  Random random(5);
  int accepted = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string line = rows[random.below(2)];
    for (unsigned changes = 1 + random.below(3); changes > 0; --changes) {
      line[random.below(line.size())] = characters[random.below(characters.size())];
    }
    const Json other = Json::parse(line, nullptr, false);
    bool isAccepted = true;
    try {
      for (const JsonMember& member : parseJsonRow(line)) {
        if (member.values.size() == 1 && other[member.name].is_string()) {
          EXPECT_EQ(member.values[0].text, other[member.name].get<std::string>()) << line;
        }
      }
    } catch (const BadInput&) {
      isAccepted = false;
    }
    EXPECT_EQ(isAccepted, isRow(other)) << line;
    accepted += isAccepted ? 1 : 0;
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace Zorbe::Tool
