// SPDX-License-Identifier: MIT
#include "records/csv.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/random.h"

namespace Zorbe::Tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Fields = std::vector<std::string>;
using Zorbe::Test::Random;

constexpr size_t kLongest = 1000;

// All rows of a text that arrives in pieces of that size.
std::vector<CsvRow> rowsOf(const std::string& text, size_t piece = 1) {
  CsvReader reader(kLongest);
  std::vector<CsvRow> rows;
  const auto take = [&] {
    for (CsvRow row; reader.next(row);) rows.push_back(row);
  };
  for (size_t at = 0; at < text.size(); at += piece) {
    reader.add(std::string_view(text).substr(at, piece));
    take();
  }
  reader.end();
  take();
  return rows;
}

Fields fieldsOf(const std::string& text) {
  const std::vector<CsvRow> rows = rowsOf(text);
  EXPECT_EQ(rows.size(), 1U) << text;
  if (rows.empty()) return {};
  EXPECT_EQ(rows[0].error, "") << text;
  return rows[0].fields;
}

std::string errorOf(const std::string& text) {
  const std::vector<CsvRow> rows = rowsOf(text + "\na,b\n");
  EXPECT_EQ(rows.size(), 2U) << text;
  EXPECT_THAT(rows.back().fields, ElementsAre("a", "b")) << "the next row is whole";
  return rows[0].error;
}

TEST(CsvReader, SplitsALineAtItsCommas) {
  EXPECT_THAT(fieldsOf("a,b,c\n"), ElementsAre("a", "b", "c"));
  EXPECT_THAT(fieldsOf(" a ,\tb"), ElementsAre(" a ", "\tb"));
  EXPECT_THAT(fieldsOf(",,\n"), ElementsAre("", "", ""));
  EXPECT_THAT(fieldsOf("\n"), ElementsAre(""));
}

TEST(CsvReader, EndsALineAtALineFeedWithOrWithoutACarriageReturn) {
  const std::vector<CsvRow> rows = rowsOf("a,b\r\n\"c\"\r\nd\ne");
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_THAT(rows[0].fields, ElementsAre("a", "b"));
  EXPECT_THAT(rows[1].fields, ElementsAre("c"));
  EXPECT_THAT(rows[3].fields, ElementsAre("e"));
}

TEST(CsvReader, AnEmptyInputHasNoRows) {
  EXPECT_TRUE(rowsOf("").empty());
  EXPECT_EQ(rowsOf("a\n").size(), 1U);
}

TEST(CsvReader, QuotedFieldsHoldAnything) {
  EXPECT_THAT(fieldsOf("\"a,b\",\"c\"\"d\",\"e\r\nf\""), ElementsAre("a,b", "c\"d", "e\r\nf"));
  EXPECT_THAT(fieldsOf("\"\",\"\"\"\"\n"), ElementsAre("", "\""));
}

TEST(CsvReader, ZeroBytesAreCharacters) {
  const std::string zero(1, '\0');
  EXPECT_THAT(fieldsOf(zero + "," + zero), ElementsAre(zero, zero));
}

TEST(CsvReader, CountsLinesAlsoInQuotedFields) {
  const std::vector<CsvRow> rows = rowsOf("a\n\"b\nc\"\nd\n");
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[1].line, 2U);
  EXPECT_EQ(rows[2].line, 4U);
}

TEST(CsvReader, NamesWhatIsWrongAndGoesOnWithTheNextLine) {
  EXPECT_THAT(errorOf("a\"b,c"), HasSubstr("does not begin with one"));
  EXPECT_THAT(errorOf("\"a\"b,c"), HasSubstr("after the closing quotation mark"));
  EXPECT_THAT(errorOf("a\rb"), HasSubstr("a carriage return"));
  EXPECT_THAT(errorOf("a\"b\",\"c"), HasSubstr("does not begin with one"));
}

TEST(CsvReader, AQuotationMarkThatIsNotClosedEndsWithTheInput) {
  const std::vector<CsvRow> rows = rowsOf("a\n\"b\nc\n");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[1].line, 2U);
  EXPECT_THAT(rows[1].error, HasSubstr("not closed"));
}

TEST(CsvReader, ARowThatIsTooLongIsLeftOut) {
  EXPECT_EQ(fieldsOf(std::string(kLongest - 1, 'a') + "\n").size(), 1U);
  EXPECT_THAT(errorOf(std::string(kLongest + 1, 'a')), HasSubstr("more than 1000 bytes"));
  EXPECT_THAT(errorOf("\"" + std::string(kLongest - 1, '\n') + "xx"),
              HasSubstr("more than 1000 bytes"));
}

// Pieces of any size, fields of the characters that matter.
TEST(CsvReader, ReadsWhatIsWritten) {
  Random random(1);
  for (int round = 0; round < 300; ++round) {
    std::vector<Fields> table(1 + random.below(4));
    std::string text;
    for (Fields& row : table) {
      row.resize(1 + random.below(4));
      const char* separator = "";
      for (std::string& field : row) {
        const unsigned length = random.below(6);
        for (unsigned i = 0; i < length; ++i) field += ",\"\r\n a\0\xff"[random.below(8)];
        text += separator;
        appendCsvField(text, field);
        separator = ",";
      }
      text += '\n';
    }
    const std::vector<CsvRow> rows = rowsOf(text, 1 + random.below(9));
    ASSERT_EQ(rows.size(), table.size()) << text;
    for (size_t i = 0; i < rows.size(); ++i) {
      EXPECT_EQ(rows[i].error, "") << text;
      EXPECT_EQ(rows[i].fields, table[i]) << text;
    }
  }
}

// Any bytes: no failure, and each line is counted.
TEST(CsvReader, TakesAnyBytes) {
  Random random(2);
  for (int round = 0; round < 300; ++round) {
    std::string text;
    const unsigned length = random.below(60);
    for (unsigned i = 0; i < length; ++i) text += "a,\"\"\"\n\n\r\0"[random.below(9)];
    const std::vector<CsvRow> whole = rowsOf(text, 1000);
    const std::vector<CsvRow> split = rowsOf(text);
    ASSERT_EQ(whole.size(), split.size()) << text;
    for (size_t i = 0; i < whole.size(); ++i) {
      EXPECT_EQ(whole[i].fields, split[i].fields) << text;
      EXPECT_EQ(whole[i].error, split[i].error) << text;
      EXPECT_EQ(whole[i].line, split[i].line) << text;
    }
  }
}

}  // namespace
}  // namespace Zorbe::Tool
