// SPDX-License-Identifier: MIT
//
// Keys that are text, in C.
#include "unit/table/c_table.h"

#include "c/handle.h"

#include <memory>

namespace Zorbe::Test {
namespace {

class CKeys : public CInterface {
 protected:
  int putText(zorbe_table* table, std::string_view key, int32_t value) {
    return zorbe_put(table, key.data(), key.size(), &value, sizeof value);
  }
  int32_t textOf(zorbe_table* table, std::string_view key) {
    int32_t value = 0;
    const int result = zorbe_get(table, key.data(), key.size(), &value, sizeof value);
    return result == 0 ? value : -result;
  }

  // As a C++ program with Text<capacity> keys stores them.
  template <size_t capacity>
  void expectTextOf() {
    using Text = Table::Text<capacity>;
    Table::Options own;
    own.root = rootPath();
    const std::string longest(capacity, 'x');
    auto owner = std::make_unique<Table::Writer<Text, int32_t>>("t", own);
    owner->put("ABC", 1);
    owner->put("", 2);
    owner->put(longest, 3);
    CTable reader;
    ASSERT_EQ(openReader(reader), 0);
    EXPECT_EQ(textOf(reader, "ABC"), 1);
    EXPECT_EQ(textOf(reader, ""), 2);
    EXPECT_EQ(textOf(reader, std::string_view()), 2) << "NULL";
    EXPECT_EQ(textOf(reader, longest), 3);
    EXPECT_EQ(textOf(reader, "AB"), -ZORBE_NOT_FOUND);
    EXPECT_EQ(textOf(reader, longest + "x"), -ZORBE_NOT_FOUND);
    owner.reset();
    CTable writer;
    ASSERT_EQ(zorbe_writer_open(writer.out(), "t", nullptr, 0, &options), 0);
    EXPECT_EQ(textOf(writer, longest), 3);
    EXPECT_EQ(putText(writer, "DEF", 4), 0);
    Table::Reader<Text, int32_t> again("t", own);
    EXPECT_EQ(again.get("DEF"), 4);
  }
};

TEST_F(CKeys, TextIsThatOfOtherPrograms) {
  expectTextOf<4>();
}

TEST_F(CKeys, TextOfTheLargestLengthWithOneByte) {
  expectTextOf<255>();
}

TEST_F(CKeys, TextOfAnOddLengthWithTwoBytes) {
  expectTextOf<257>();
}

TEST_F(CKeys, TextOfAnEvenLengthWithTwoBytes) {
  expectTextOf<256>();
}

TEST_F(CKeys, LongTextHasAByteBeforeItsLength) {
  const std::vector<zorbe_field> fields{ZORBE_TEXT_KEY("name", 301),
                                        {"value", ZORBE_VALUE, 'i', 4, 0, 0}};
  CTable writer;
  ASSERT_EQ(openWriter(writer, fields), 0) << zorbe_error_text(writer);
  EXPECT_EQ(putText(writer, std::string(301, 'x'), 3), 0);
  EXPECT_EQ(putText(writer, std::string(302, 'x'), 3), ZORBE_E_TOO_LARGE);
  EXPECT_EQ(putText(writer, std::string(304, 'x'), 3), ZORBE_E_TOO_LARGE);
  EXPECT_EQ(textOf(writer, std::string(301, 'x')), 3);
}

TEST_F(CKeys, TheStoredFormIsAKey) {
  const std::vector<zorbe_field> fields{ZORBE_TEXT_KEY("symbol", 4),
                                        {"value", ZORBE_VALUE, 'i', 4, 0, 0}};
  CTable writer;
  ASSERT_EQ(openWriter(writer, fields), 0);
  EXPECT_EQ(putText(writer, "AB", 1), 0);
  uint64_t cursor = 0;
  char stored[5];
  EXPECT_EQ(zorbe_scan(writer, &cursor, stored, nullptr), 0);
  EXPECT_EQ(std::string_view(stored, 5), std::string_view("AB\0\0\2", 5));
  EXPECT_EQ(textOf(writer, std::string_view(stored, 5)), 1);
  EXPECT_EQ(putText(writer, std::string_view("ABCD\4", 5), 2), 0);
  EXPECT_EQ(textOf(writer, "ABCD"), 2);
  EXPECT_EQ(zorbe_erase(writer, stored, 5), 0);
  EXPECT_EQ(textOf(writer, "AB"), -ZORBE_NOT_FOUND);
}

TEST_F(CKeys, ATextThatIsTooLongIsRefusedAndNotFound) {
  const std::vector<zorbe_field> fields{ZORBE_TEXT_KEY("symbol", 4),
                                        {"value", ZORBE_VALUE, 'i', 4, 0, 0}};
  CTable writer;
  ASSERT_EQ(openWriter(writer, fields), 0);
  using std::string_view;
  // Those of five bytes could be a key as it is stored, but for its last byte.
  for (const string_view text : {string_view("ABCDE"), string_view("ABCDEF"),
                                 string_view("ABCD\3", 5), string_view("ABC\0\2", 5)}) {
    expectFailure(writer, putText(writer, text, 1), ZORBE_E_TOO_LARGE,
                  "the key has " + std::to_string(text.size()) + " bytes and its type room for 4");
    EXPECT_EQ(zorbe_erase(writer, text.data(), text.size()), ZORBE_NOT_FOUND);
    EXPECT_EQ(textOf(writer, text), -ZORBE_NOT_FOUND);
  }
  EXPECT_EQ(zorbe_count(writer), 0u);
}

TEST_F(CKeys, ALoneTextFieldIsATextWithoutALength) {
  CTable writer;
  ASSERT_EQ(openWriter(writer,
                       {{"symbol", ZORBE_KEY, 'S', 4, 0, 0}, {"value", ZORBE_VALUE, 'i', 4, 0, 0}}),
            0);
  EXPECT_EQ(putText(writer, "AB", 1), 0);
  EXPECT_EQ(putText(writer, "ABCD", 2), 0);
  EXPECT_EQ(putText(writer, "ABCDE", 3), ZORBE_E_TOO_LARGE);
  EXPECT_EQ(textOf(writer, "AB"), 1);
  EXPECT_EQ(textOf(writer, std::string_view("AB\0\0", 4)), 1);
  EXPECT_EQ(textOf(writer, "ABCD"), 2);
  EXPECT_EQ(zorbe_count(writer), 2u);
}

TEST_F(CKeys, OtherKeysHaveTheirSizeOnly) {
  const auto refuses = [this](const std::vector<zorbe_field>& key) {
    std::vector<zorbe_field> fields = key;
    fields.push_back({"value", ZORBE_VALUE, 'i', 4, 0, 0});
    CTable writer;
    options.flags = ZORBE_REPLACE_SCHEMA;
    EXPECT_EQ(openWriter(writer, fields), 0) << zorbe_error_text(writer);
    return putText(writer, "AB", 1) == ZORBE_E_USAGE;
  };
  EXPECT_TRUE(refuses({{"k", ZORBE_KEY, 'V', 4, 0, 0}}));
  EXPECT_TRUE(refuses({{"k", ZORBE_KEY, 'S', 4, 2, 0}}));
  EXPECT_TRUE(refuses({{"a", ZORBE_KEY, 'S', 4, 0, 0}, {"b", ZORBE_KEY, 'S', 4, 0, 4}}));
  EXPECT_TRUE(refuses({{"a", ZORBE_KEY, 'S', 4, 0, 0}, {"b.length", ZORBE_KEY, 'u', 1, 0, 4}}));
  EXPECT_TRUE(refuses({{"a", ZORBE_KEY, 'S', 4, 0, 0}, {"a.length", ZORBE_KEY, 'i', 1, 0, 4}}));
  EXPECT_TRUE(refuses({{"a", ZORBE_KEY, 'S', 4, 0, 0}, {"a.length", ZORBE_KEY, 'u', 2, 0, 4}}));
  EXPECT_TRUE(refuses({{"a", ZORBE_KEY, 'S', 4, 0, 0}, {"a.length", ZORBE_KEY, 'u', 1, 1, 4}}));
  EXPECT_TRUE(refuses({{"n", ZORBE_KEY, 'u', 1, 0, 0}, {"a", ZORBE_KEY, 'S', 4, 0, 1}}));
  EXPECT_TRUE(refuses({{"a", ZORBE_KEY, 'S', 4, 0, 0},
                       {"a.length", ZORBE_KEY, 'u', 1, 0, 4},
                       {"c", ZORBE_KEY, 'u', 1, 0, 5}}));
  EXPECT_FALSE(refuses({{"a", ZORBE_KEY, 'S', 4, 0, 0}, {"a.length", ZORBE_KEY, 'u', 1, 0, 4}}));
}

TEST_F(CKeys, KeysOfSeveralWordsAndFieldsAreWhole) {
  const std::vector<zorbe_field> fields{{"market", ZORBE_KEY, 'u', 8, 0, 0},
                                        {"id", ZORBE_KEY, 'u', 1, 3, 8},
                                        {"value", ZORBE_VALUE, 'i', 4, 0, 0}};
  CTable writer;
  ASSERT_EQ(openWriter(writer, fields), 0);
  EXPECT_EQ(putText(writer, "market12abc", 1), 0);
  EXPECT_EQ(putText(writer, "market12abd", 2), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_EQ(textOf(reader, "market12abc"), 1);
  EXPECT_EQ(textOf(reader, "market12abd"), 2);
  EXPECT_EQ(textOf(reader, "market13abd"), -ZORBE_NOT_FOUND);
}

// Keys of one to four words, and values of every remainder: each lookup but the first of the
// shorter ones needs no call of the library's core.
TEST_F(CKeys, LookupsGetTheWholeRecordWithoutACall) {
  options.flags = ZORBE_REPLACE_SCHEMA;
  options.records = 4;
  for (const uint32_t keyBytes : {1u, 8u, 9u, 16u, 24u, 25u, 1024u}) {
    for (const uint32_t valueBytes : {7u, 8u, 41u}) {
      SCOPED_TRACE(std::to_string(keyBytes) + ", " + std::to_string(valueBytes));
      CTable writer;
      ASSERT_EQ(openWriter(writer, {{"k", ZORBE_KEY, 'V', keyBytes, 0, 0},
                                    {"v", ZORBE_VALUE, 'V', valueBytes, 0, 0}}),
                0);
      std::string key(keyBytes, 'k');
      std::string value(valueBytes, 'v');
      value.back() = 'x';
      EXPECT_EQ(zorbe_put(writer, key.data(), keyBytes, value.data(), valueBytes), 0);
      CTable reader;
      ASSERT_EQ(openReader(reader), 0);
      const auto& window =
          static_cast<Table::TableHandle*>(static_cast<zorbe_table*>(reader))->view->window();
      for (int i = 0; i < 3; ++i) {
        std::string found(valueBytes + 1, 'y');
        EXPECT_EQ(zorbe_get(reader, key.data(), keyBytes, found.data(), valueBytes), 0);
        EXPECT_EQ(found, value + "y");
        EXPECT_EQ(zorbe_get(reader, key.data(), keyBytes, nullptr, 0), 0);
      }
      EXPECT_EQ(window.calls, keyBytes <= 24 ? 1u : 6u);
      key.back() = 'z';
      EXPECT_EQ(zorbe_get(reader, key.data(), keyBytes, nullptr, 0), ZORBE_NOT_FOUND);
    }
  }
}

}  // namespace
}  // namespace Zorbe::Test
