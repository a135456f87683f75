// SPDX-License-Identifier: MIT
#include "records/row.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "records/bad_input.h"
#include "records/csv.h"
#include "support/random.h"

namespace Zorbe::Tool {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using Zorbe::Table::Kind;
using Zorbe::Test::Random;
using Words = std::vector<std::string>;

TEST(Row, ArraysHaveAFieldForEachElement) {
  const Shape shape = shapeFrom({"k:u1"}, {"v:u2[3]"});
  Record record(shape.schema);
  EXPECT_EQ(csvNames(shape), (Words{"k", "v[0]", "v[1]", "v[2]"}));
  readCsvRow(shape, {"1", "2", "3", "4"}, record);
  std::string line;
  appendJsonLine(line, shape, Kind::put, record);
  EXPECT_EQ(line, "{\"k\":1,\"v\":[2,3,4]}\n");
  EXPECT_THAT([&] { readJsonLine(shape, R"({"k":1,"v":[2,3]})", record); },
              ThrowsMessage<BadInput>("v: an array of 3 is needed"));
  EXPECT_THAT([&] { readJsonLine(shape, R"({"k":1,"v":2})", record); },
              ThrowsMessage<BadInput>("v: an array of 3 is needed"));
}

TEST(Row, AnElementOfAnArrayIsNamedInItsMessage) {
  const Shape shape = shapeFrom({"k:u1"}, {"v:u1[2]"});
  Record record(shape.schema);
  EXPECT_THAT(
      [&] {
        readCsvRow(shape, {"1", "2", "x"}, record);
      },
      ThrowsMessage<BadInput>("v[1]: 'x' is no integer"));
  EXPECT_THAT([&] { readCsvRow(shape, {"1"}, record); },
              ThrowsMessage<BadInput>("the number of fields is 1 and not 3"));
}

TEST(Row, JsonNamesWhatIsMissingUnknownOrDouble) {
  const Shape shape = shapeFrom({"k:u1"}, {"v:u1"});
  Record record(shape.schema);
  const auto expectRefused = [&](const std::string& line, const std::string& why) {
    EXPECT_THAT([&] { readJsonLine(shape, line, record); }, ThrowsMessage<BadInput>(HasSubstr(why)))
        << line;
  };
  expectRefused("{}", "the field 'k' is missing");
  expectRefused(R"({"k":1})", "the field 'v' is missing");
  expectRefused(R"({"k":1,"v":2,"w":3})", "there is no field 'w'");
  expectRefused(R"({"k":1,"v":2,"v":3})", "the field 'v' is there twice");
  expectRefused(R"({"erased":true})", "the field 'k' is missing");
  expectRefused(R"({"k":1,"erased":1})", "erased: true or false is needed");
  expectRefused(R"({"reset":true,"k":1})", "reset: there is more in the object");
  expectRefused(R"({"reset":true,"complete":true})", "there is more in the object");
  expectRefused(R"({"reset":false})", "there is no field 'reset'");
}

TEST(Row, JsonSaysWhatHasHappened) {
  const Shape shape = shapeFrom({"k:u1"}, {"v:u1"});
  Record record(shape.schema);
  EXPECT_EQ(readJsonLine(shape, R"({"reset":true})", record), Kind::reset);
  EXPECT_EQ(readJsonLine(shape, R"( {"complete" : true}  )", record), Kind::complete);
  EXPECT_EQ(readJsonLine(shape, R"({"erased":true,"k":3})", record), Kind::erased);
  EXPECT_EQ(elementsOf(shape, record)[0], "3");
  EXPECT_EQ(readJsonLine(shape, R"({"v":4,"erased":false,"k":3})", record), Kind::put);
  std::string lines;
  for (const Kind kind : {Kind::reset, Kind::put, Kind::erased, Kind::complete}) {
    appendJsonLine(lines, shape, kind, record);
  }
  EXPECT_EQ(
      lines,
      "{\"reset\":true}\n{\"k\":3,\"v\":4}\n{\"k\":3,\"erased\":true}\n{\"complete\":true}\n");
}

TEST(Row, KeysAreInTheOrderOfTheirValues) {
  const Shape shape = shapeFrom({"a:i4", "b:S3"}, {"v:u1"});
  const std::vector<Words> sorted{{"-5", "z", "0"}, {"9", "", "0"},   {"9", "Z", "0"},
                                  {"9", "a", "0"},  {"9", "aa", "0"}, {"10", "a", "0"}};
  std::vector<Record> records;
  for (const Words& row : sorted) readCsvRow(shape, row, records.emplace_back(shape.schema));
  for (size_t i = 0; i < records.size(); ++i) {
    for (size_t j = 0; j < records.size(); ++j) {
      EXPECT_EQ(isKeyLess(shape, records[i], records[j]), i < j) << i << " " << j;
    }
  }
}

// Another program may have described its key so. Sorting needs one order of all.
TEST(Row, KeysThatAreNoNumbersComeLast) {
  const Shape shape = shapeOf({8, 1, "key k f8 0\nvalue v u1 0\n"});
  std::vector<Record> records;
  for (const char* text : {"-inf", "-0.5", "1", "inf", "nan"}) {
    readCsvRow(shape, {text, "0"}, records.emplace_back(shape.schema));
  }
  for (size_t i = 0; i < records.size(); ++i) {
    for (size_t j = 0; j < records.size(); ++j) {
      EXPECT_EQ(isKeyLess(shape, records[i], records[j]), i < j) << i << " " << j;
    }
  }
}

// Bytes that a program could have stored: every length fits, booleans are 0 or 1.
void fillRandomly(const Shape& shape, Record& record, Random& random) {
  record.clear();
  for (const Column& column : shape.columns) {
    for (uint32_t element = 0; element < column.elements(); ++element) {
      std::string bytes(column.bytes, '\0');
      for (char& byte : bytes) byte = static_cast<char>(random.next());
      if (column.type == 'S') bytes.resize(random.below(column.bytes + 1));
      if (column.type == 'b') bytes[0] = static_cast<char>(random.below(2));
      if (column.type == 'S') {
        storeScalar(bytes, column, record, element);
      } else {
        std::memcpy(record.part(column) + column.offset + size_t{element} * column.bytes,
                    bytes.data(), bytes.size());
      }
    }
  }
}

// Of any description, no byte beside the record is read.
TEST(Row, NoDescriptionLeadsOutOfTheRecord) {
  const char* const parts[] = {"key", "value"};
  const char* const names[] = {"a", "a.length", "b", "erased"};
  const char* const types[] = {"S4", "u1", "u2",    "u4",    "f8", "V3",
                               "i8", "b1", "u2[3]", "S2[2]", "f2"};
  Random random(7);
  int described = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string text;
    for (unsigned lines = 1 + random.below(5); lines > 0; --lines) {
      text += std::string(parts[random.below(2)]) + " " + names[random.below(4)] + " " +
              types[random.below(11)] + " " + std::to_string(random.below(9)) + "\n";
    }
    const Shape shape = shapeOf({1 + random.below(12), random.below(12), text});
    Record record(shape.schema);
    for (uint64_t& word : record.key) word = random.next();
    for (unsigned char& byte : record.value) byte = static_cast<unsigned char>(random.next());
    std::string out;
    appendCsvLine(out, elementsOf(shape, record));
    appendJsonLine(out, shape, Kind::put, record);
    appendTextLine(out, shape, Kind::put, record);
    EXPECT_FALSE(isKeyLess(shape, record, record)) << text;
    described += optionsOf(shape).find("key:V") == std::string::npos ? 1 : 0;
  }
  EXPECT_GT(described, 500);
}

TEST(Row, EveryRecordSurvivesCsvAndJson) {
  const Shape shape =
      shapeFrom({"a:i8", "b:S9"}, {"c:f4", "d:f8", "e:b1", "f:S300", "g:V3", "h:u2[3]", "i:i1",
                                   "j:f4[2]", "k:V2[2]", "l:u8", "m:i4", "n:u4", "o:i2", "p:u1"});
  Record record(shape.schema);
  Record copy(shape.schema);
  Random random(3);
  for (int round = 0; round < 500; ++round) {
    fillRandomly(shape, record, random);
    std::string line;
    appendCsvLine(line, elementsOf(shape, record));
    CsvReader reader(line.size() + 1);
    reader.add(line);
    CsvRow row;
    ASSERT_TRUE(reader.next(row));
    readCsvRow(shape, row.fields, copy);
    EXPECT_EQ(elementsOf(shape, copy), elementsOf(shape, record));
    std::string object;
    appendJsonLine(object, shape, Kind::put, record);
    ASSERT_EQ(readJsonLine(shape, object, copy), Kind::put) << object;
    EXPECT_EQ(elementsOf(shape, copy), elementsOf(shape, record)) << object;
  }
}

}  // namespace
}  // namespace Zorbe::Tool
