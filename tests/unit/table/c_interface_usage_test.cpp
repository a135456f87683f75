// SPDX-License-Identifier: MIT
//
// What the table's interface in C refuses: handles, sizes, fields and options.
#include "unit/table/c_table.h"

#include <zorbe/table/codec.h>

#include <functional>

namespace Zorbe::Test {
namespace {

// A Record has not the same size on every processor.
const std::string kInsteadOfRecord = " instead of " + std::to_string(sizeof(Record)) + " bytes";

class CUsage : public CInterface {
 protected:
  /// What each function returns that takes a handle.
  static std::vector<int> resultsOf(zorbe_table* table) {
    uint32_t key = 1;
    Record record{1, 1};
    uint64_t cursor = 0;
    zorbe_change change{};
    zorbe_info info{};
    info.size = sizeof info;
    return {zorbe_put(table, &key, sizeof key, &record, sizeof record),
            zorbe_erase(table, &key, sizeof key),
            zorbe_publish(table),
            zorbe_wait(table, 0),
            zorbe_next(table, &change),
            zorbe_fd(table),
            zorbe_process(table),
            zorbe_refresh(table),
            zorbe_get(table, &key, sizeof key, &record, sizeof record),
            zorbe_scan(table, &cursor, &key, &record),
            zorbe_get_info(table, &info)};
  }

  void expectRefusedField(const zorbe_field& field, const char* text) {
    std::vector<zorbe_field> fields = recordFields();
    fields[1] = field;
    expectRefusedFields(fields, text);
  }

  void expectRefusedFields(const std::vector<zorbe_field>& fields, const std::string& text) {
    CTable table;
    options.value_bytes = 0;
    expectFailure(table, openWriter(table, fields), ZORBE_E_USAGE, "table 't': " + text);
  }

  void expectRefusedOptions(const char* text) {
    CTable table;
    expectFailure(table, openReader(table), ZORBE_E_USAGE, text);
    expectFailure(table, openWriter(table), ZORBE_E_USAGE, text);
  }
};

TEST_F(CUsage, NullIsRefusedEverywhere) {
  EXPECT_THAT(resultsOf(nullptr), testing::Each(ZORBE_E_USAGE));
  size_t n = 7;
  EXPECT_EQ(zorbe_fields(nullptr, &n), nullptr);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(zorbe_count(nullptr), 0u);
  EXPECT_EQ(zorbe_error(nullptr), ZORBE_E_USAGE);
  EXPECT_STREQ(zorbe_error_text(nullptr), "the handle is NULL");
  EXPECT_EQ(zorbe_duplicate(nullptr, nullptr, nullptr), ZORBE_E_USAGE);
  EXPECT_EQ(zorbe_reader_open(nullptr, "t", &options), ZORBE_E_USAGE);
  EXPECT_EQ(zorbe_writer_open(nullptr, "t", nullptr, 0, &options), ZORBE_E_USAGE);
  zorbe_close(nullptr);
}

TEST_F(CUsage, AHandleThatWasNotOpenedKeepsItsError) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "a/"}) {
    CTable table;
    const char* const part = name == nullptr ? "the table has no name" : "1 to 91 bytes";
    expectFailure(table, zorbe_reader_open(table.out(), name, &options), ZORBE_E_USAGE, part);
    EXPECT_THAT(resultsOf(table), testing::Each(ZORBE_E_CLOSED));
    EXPECT_EQ(zorbe_count(table), 0u);
    EXPECT_EQ(zorbe_fields(table, nullptr), nullptr);
    EXPECT_EQ(zorbe_duplicate(table, nullptr, nullptr), ZORBE_NOT_FOUND);
    expectFailure(table, zorbe_error(table), ZORBE_E_USAGE, part);
    expectFailure(table, zorbe_writer_open(table.out(), name, nullptr, 0, &options), ZORBE_E_USAGE,
                  part);
  }
}

TEST_F(CUsage, TheKindsOfHandlesHaveTheirFunctions) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  const std::vector<int> ofReader = resultsOf(reader);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(ofReader[i], ZORBE_E_USAGE) << i;
  for (size_t i = 3; i < ofReader.size(); ++i) EXPECT_GE(ofReader[i], 0) << i;
  const std::vector<int> ofWriter = resultsOf(writer);
  for (size_t i = 0; i < ofWriter.size(); ++i) {
    EXPECT_EQ(ofWriter[i] == ZORBE_E_USAGE, i >= 3 && i < 8) << i;
  }
  expectFailure(reader, zorbe_publish(reader), ZORBE_E_USAGE, "is a reader");
  expectFailure(writer, zorbe_refresh(writer), ZORBE_E_USAGE, "is a writer");
  EXPECT_EQ(zorbe_publish(writer), 0);
  EXPECT_EQ(zorbe_error(writer), 0);
  EXPECT_STREQ(zorbe_error_text(writer), "");
}

TEST_F(CUsage, SizesAreThoseOfTheDescription) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  const uint64_t key = 1;
  Record record{1, 1};
  for (const size_t size : {size_t{0}, size_t{3}, size_t{5}, size_t{8}}) {
    const std::string text =
        "table 't': the key is " + std::to_string(size) + " bytes instead of 4 bytes";
    expectFailure(writer, zorbe_put(writer, &key, size, &record, sizeof record), ZORBE_E_USAGE,
                  text);
    expectFailure(writer, zorbe_erase(writer, &key, size), ZORBE_E_USAGE, text);
    expectFailure(writer, zorbe_get(writer, &key, size, &record, sizeof record), ZORBE_E_USAGE,
                  text);
  }
  for (const size_t size : {sizeof record - 1, sizeof record + 1, size_t{0}}) {
    const std::string text =
        "table 't': the value is " + std::to_string(size) + " bytes" + kInsteadOfRecord;
    expectFailure(writer, zorbe_put(writer, &key, 4, &record, size), ZORBE_E_USAGE, text);
    expectFailure(writer, zorbe_get(writer, &key, 4, &record, size), ZORBE_E_USAGE, text);
  }
  EXPECT_EQ(zorbe_count(writer), 0u);
}

TEST_F(CUsage, NullIsNoKeyAndNoValue) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  Record record{1, 1};
  const uint32_t key = 1;
  expectFailure(writer, zorbe_put(writer, nullptr, 4, &record, sizeof record), ZORBE_E_USAGE,
                "the key is NULL instead of 4 bytes");
  expectFailure(writer, zorbe_put(writer, &key, 4, nullptr, sizeof record), ZORBE_E_USAGE,
                "the value is NULL" + kInsteadOfRecord);
  expectFailure(writer, zorbe_put(writer, &key, 4, nullptr, 0), ZORBE_E_USAGE, "the value is NULL");
  expectFailure(writer, zorbe_get(writer, &key, 4, nullptr, sizeof record), ZORBE_E_USAGE,
                "the value is NULL");
  expectFailure(writer, zorbe_scan(writer, nullptr, nullptr, nullptr), ZORBE_E_USAGE,
                "the cursor is NULL");
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  expectFailure(reader, zorbe_next(reader, nullptr), ZORBE_E_USAGE, "the change is NULL");
}

TEST_F(CUsage, FieldsAreChecked) {
  expectRefusedField({nullptr, ZORBE_VALUE, 'i', 8, 0, 0}, "a field has no name");
  expectRefusedField({"a b", ZORBE_VALUE, 'i', 8, 0, 0}, "'a b' is no name for a field");
  expectRefusedField({"x", 0, 'i', 8, 0, 0}, "the field 'x' is neither of the key nor");
  expectRefusedField({"x", 3, 'i', 8, 0, 0}, "the field 'x' is neither of the key nor");
  expectRefusedField({"x", ZORBE_KEY, 'f', 8, 0, 8}, "the field 'x' of the key is a floating");
  for (const auto& [type, bytes] : std::vector<std::pair<char, uint32_t>>{
           {'i', 3}, {'u', 16}, {'u', 0}, {'f', 2}, {'b', 2}, {'S', 0}, {'V', 0}, {'x', 4}}) {
    expectRefusedField({"x", ZORBE_VALUE, type, bytes, 0, 0},
                       ("the field 'x' is of type '" + std::string(1, type) +
                        std::to_string(bytes) + "', which is none")
                           .c_str());
  }
  expectRefusedField({"x", ZORBE_VALUE, 'i', 8, 0, 4},
                     "the field 'b' is not in the struct's order");
  expectRefusedFields({{"v", ZORBE_VALUE, 'i', 8, 0, 0}}, "no field is one of the key");
  expectRefusedFields({{"k", ZORBE_KEY, 'u', 4, 0, 4}},
                      "the key has bytes that belong to no field");
  options.key_bytes = 8;
  expectRefusedFields({{"k", ZORBE_KEY, 'u', 4, 0, 0}},
                      "the key has bytes that belong to no field");
  options.key_bytes = 3;
  expectRefusedFields({{"k", ZORBE_KEY, 'u', 4, 0, 0}}, "the field 'k' ends behind the struct");
}

TEST_F(CUsage, EveryTypeOfAFieldIsTaken) {
  std::vector<zorbe_field> fields{{"k", ZORBE_KEY, 'V', 3, 0, 0}};
  uint32_t offset = 0;
  for (const auto& [type, bytes] : std::vector<std::pair<char, uint32_t>>{{'i', 8},
                                                                          {'u', 8},
                                                                          {'f', 8},
                                                                          {'i', 4},
                                                                          {'u', 4},
                                                                          {'f', 4},
                                                                          {'i', 2},
                                                                          {'u', 2},
                                                                          {'i', 1},
                                                                          {'u', 1},
                                                                          {'b', 1},
                                                                          {'S', 3},
                                                                          {'V', 3}}) {
    fields.push_back({"x", ZORBE_VALUE, type, bytes, 2, offset});
    offset += 2 * bytes;
  }
  CTable table;
  ASSERT_EQ(openWriter(table, fields), 0) << zorbe_error_text(table);
  zorbe_info info{};
  info.size = sizeof info;
  EXPECT_EQ(zorbe_get_info(table, &info), 0);
  EXPECT_EQ(info.key_bytes, 3u);
  EXPECT_EQ(info.value_bytes, offset);
}

TEST_F(CUsage, KeysAndValuesHaveALargestSize) {
  constexpr uint32_t kMost = 1u << 20;
  const std::vector<zorbe_field> largest{{"k", ZORBE_KEY, 'u', 8, 128, 0},
                                         {"v", ZORBE_VALUE, 'V', 1, kMost, 0}};
  options.records = 1;
  CTable table;
  ASSERT_EQ(openWriter(table, largest), 0) << zorbe_error_text(table);
  const std::string key(1024, 'k');
  const std::string value(kMost, 'v');
  EXPECT_EQ(zorbe_put(table, key.data(), key.size(), value.data(), value.size()), 0);
  std::string found(kMost, ' ');
  EXPECT_EQ(zorbe_get(table, key.data(), key.size(), found.data(), found.size()), 0);
  EXPECT_EQ(found, value);
  expectRefusedFields({{"k", ZORBE_KEY, 'u', 8, 129, 0}},
                      "a key has 1032 bytes; it may have 1024 at most");
  expectRefusedFields({largest[0], {"v", ZORBE_VALUE, 'V', 1, kMost, 1}},
                      "a value has 1048577 bytes; it may have 1048576 at most");
  expectRefusedFields({largest[0], {"v", ZORBE_VALUE, 'V', UINT32_MAX, UINT32_MAX, UINT32_MAX}},
                      "a value has 18446744069414584320 bytes; it may have");
}

TEST_F(CUsage, OptionsAreChecked) {
  options.flags = 16;
  expectRefusedOptions("zorbe_options: flags has a bit");
  options.flags = 0;
  options.mode = 010000;
  expectRefusedOptions("zorbe_options: mode has bits");
  options.mode = 0;
  options.root = "relative";
  expectRefusedOptions("Options::root is not an absolute path");
}

TEST_F(CUsage, OptionsOfAnOlderProgramHaveDefaults) {
  options.records = 1;
  options.max_records = 1;
  options.size = offsetof(zorbe_options, records);
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  EXPECT_EQ(put(writer, 2, 20), 0);
  for (const size_t size : {size_t{0}, offsetof(zorbe_options, mode) + sizeof(unsigned) - 1}) {
    options.size = size;
    expectRefusedOptions("zorbe_options: size is");
  }
  options.size = offsetof(zorbe_options, mode) + sizeof(unsigned);
  CTable reader;
  EXPECT_EQ(openReader(reader), 0);
}

TEST_F(CUsage, OptionsOfALaterProgramMayNotBeUsed) {
  struct {
    zorbe_options known;
    char later[16];
  } all{options, {}};
  all.known.size = sizeof all;
  CTable table;
  EXPECT_EQ(zorbe_reader_open(table.out(), "t", &all.known), 0) << zorbe_error_text(table);
  all.later[15] = 1;
  expectFailure(table, zorbe_reader_open(table.out(), "t", &all.known), ZORBE_E_USAGE,
                "a later version");
  all.later[15] = 0;
  all.later[0] = 1;
  expectFailure(table, zorbe_reader_open(table.out(), "t", &all.known), ZORBE_E_USAGE,
                "a later version");
}

TEST_F(CUsage, WithoutOptionsTheRootIsThatOfTheEnvironment) {
  CTable writer;
  const std::vector<zorbe_field> fields = recordFields();
  ASSERT_EQ(zorbe_writer_open(writer.out(), "t", fields.data(), fields.size(), nullptr), 0)
      << zorbe_error_text(writer);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_NE(zorbe_fields(reader, nullptr), nullptr);
}

TEST_F(CUsage, FieldsWithoutANumberAreNone) {
  CTable table;
  expectFailure(table, zorbe_writer_open(table.out(), "t", nullptr, 3, &options), ZORBE_E_USAGE,
                "there are no fields");
}

}  // namespace
}  // namespace Zorbe::Test
