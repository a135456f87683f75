// SPDX-License-Identifier: MIT
//
// In C: readers and writers that take the description as they find it, and tables that they cannot
// open.
#include "unit/table/c_table.h"
#include "unit/table/damage.h"

#include "memory/layout.h"

#include <unistd.h>

#include <filesystem>

namespace Zorbe::Test {
namespace {

class CFound : public CInterface {
 protected:
  using Fields = std::vector<zorbe_field>;

  static Fields otherFields() {
    return {{"key", ZORBE_KEY, 'u', 4, 0, 0}, {"other", ZORBE_VALUE, 'f', 8, 0, 0}};
  }
  static Fields largerFields() {
    Fields fields = recordFields();
    fields.push_back({"c", ZORBE_VALUE, 'i', 4, 0, 12});
    return fields;
  }

  // Its next change, after as many looks as that needs.
  static int nextAfterTurning(zorbe_table* reader, zorbe_change& change) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(kDeadline);
    int result = ZORBE_END;
    while (result == ZORBE_END && std::chrono::steady_clock::now() < end) {
      EXPECT_GE(zorbe_refresh(reader), 0);
      result = zorbe_next(reader, &change);
    }
    return result;
  }

  static int stateOf(zorbe_table* table) {
    zorbe_info info{};
    info.size = sizeof info;
    EXPECT_EQ(zorbe_get_info(table, &info), 0);
    return info.state;
  }
};

TEST_F(CFound, AReaderWaitsForATable) {
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  size_t n = 7;
  EXPECT_EQ(zorbe_fields(reader, &n), nullptr);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(stateOf(reader), ZORBE_WAITING);
  EXPECT_EQ(zorbe_get(reader, "any", 3, nullptr, 0), ZORBE_NOT_FOUND);
  EXPECT_EQ(zorbe_count(reader), 0u);
  uint64_t cursor = 0;
  EXPECT_EQ(zorbe_scan(reader, &cursor, nullptr, nullptr), ZORBE_END);
  EXPECT_FALSE(std::filesystem::exists(inRoot("t")));
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  EXPECT_EQ(zorbe_publish(writer), 0);
  uint32_t key = 0;
  Record record{};
  zorbe_change change{0, 0, nullptr, nullptr};
  ASSERT_EQ(nextOf(reader, change), 0);
  EXPECT_EQ(change.kind, ZORBE_RESET);
  EXPECT_NE(zorbe_fields(reader, &n), nullptr);
  EXPECT_EQ(n, 3u);
  change.key = &key;
  change.value = &record;
  ASSERT_EQ(nextOf(reader, change), 0);
  EXPECT_EQ(change.kind, ZORBE_PUT);
  EXPECT_EQ(key, 1u);
  EXPECT_EQ(record.a, 10);
}

TEST_F(CFound, AReaderKeepsTheFirstDescription) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  zorbe_change change{};
  ASSERT_EQ(zorbe_next(reader, &change), 0);
  options.flags = ZORBE_REPLACE_SCHEMA;
  writer.close();
  options.value_bytes = 0;
  ASSERT_EQ(openWriter(writer, otherFields()), 0) << zorbe_error_text(writer);
  int result = 0;
  while (result == 0) result = nextAfterTurning(reader, change);
  expectFailure(reader, result, ZORBE_E_SCHEMA, "its records have another description");
  EXPECT_EQ(stateOf(reader), ZORBE_REFUSED);
  EXPECT_EQ(valueOf(reader, 1), 10);
  size_t n = 0;
  EXPECT_NE(zorbe_fields(reader, &n), nullptr);
  EXPECT_EQ(n, 3u);
  while ((result = zorbe_next(reader, &change)) == 0) {
  }
  EXPECT_EQ(result, ZORBE_END);  // the error once
}

TEST_F(CFound, AReaderReadsTheBeginningOfLargerRecords) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  writer.close();
  const int32_t record[4] = {10, 0, 20, 30};
  options.flags = ZORBE_REPLACE_SCHEMA;
  options.value_bytes = sizeof record;
  ASSERT_EQ(openWriter(writer, largerFields()), 0) << zorbe_error_text(writer);
  const uint32_t key = 1;
  EXPECT_EQ(zorbe_put(writer, &key, sizeof key, record, sizeof record), 0);
  EXPECT_EQ(zorbe_refresh(reader), ZORBE_REPLACED);
  Record found{};
  EXPECT_EQ(get(reader, 1, found), 0);
  EXPECT_EQ(found.b, 20);
  size_t n = 0;
  EXPECT_NE(zorbe_fields(reader, &n), nullptr);
  EXPECT_EQ(n, 3u);
}

TEST_F(CFound, AWriterContinuesWhatItFinds) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  writer.close();
  ASSERT_EQ(zorbe_writer_open(writer.out(), "t", nullptr, 0, &options), 0);
  EXPECT_EQ(valueOf(writer, 1), 10);
  EXPECT_EQ(put(writer, 2, 20), 0);
  size_t n = 0;
  EXPECT_NE(zorbe_fields(writer, &n), nullptr);
  EXPECT_EQ(n, 3u);
}

TEST_F(CFound, AWriterNeedsFieldsOrATable) {
  CTable writer;
  expectFailure(writer, zorbe_writer_open(writer.out(), "t", nullptr, 0, &options),
                ZORBE_E_NO_TABLE, "table 't': there is none to take the fields from");
  EXPECT_FALSE(std::filesystem::exists(inRoot("t")));
}

TEST_F(CFound, AWriterRefusesOtherFieldsUnlessItReplaces) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  writer.close();
  options.value_bytes = 0;
  expectFailure(writer, openWriter(writer, otherFields()), ZORBE_E_SCHEMA, "another description");
  options.flags = ZORBE_REPLACE_SCHEMA;
  ASSERT_EQ(openWriter(writer, otherFields()), 0);
  EXPECT_EQ(zorbe_count(writer), 0u);
}

TEST_F(CFound, ATableWithoutADescriptionHasSizes) {
  Table::Options own;
  own.root = rootPath();
  Table::ServedWriter writer("t", own, Table::Schema{4, 8, ""});
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  size_t n = 7;
  EXPECT_EQ(zorbe_fields(reader, &n), nullptr);
  EXPECT_EQ(n, 0u);
  zorbe_info info{};
  info.size = sizeof info;
  EXPECT_EQ(zorbe_get_info(reader, &info), 0);
  EXPECT_EQ(info.key_bytes, 4u);
  EXPECT_EQ(info.value_bytes, 8u);
  const uint64_t key = 1;
  const uint64_t value = 5;
  writer.put(&key, &value);
  uint64_t found = 0;
  EXPECT_EQ(zorbe_get(reader, &key, 4, &found, 8), 0);
  EXPECT_EQ(found, 5u);
}

TEST_F(CFound, ADescriptionThatCannotBeParsedIsNone) {
  Table::Options own;
  own.root = rootPath();
  const Table::ServedWriter writer("t", own, Table::Schema{4, 8, "no description\n"});
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_EQ(zorbe_fields(reader, nullptr), nullptr);
  const uint32_t key = 1;
  EXPECT_EQ(zorbe_get(reader, &key, 4, nullptr, 0), ZORBE_NOT_FOUND);
}

TEST_F(CFound, FilesOfAnotherUserAreRefused) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  options.flags = ZORBE_CHECK_OWNER;
  options.owner = ::geteuid();
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_NE(zorbe_fields(reader, nullptr), nullptr);
  options.owner = ::geteuid() + 1;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_EQ(zorbe_fields(reader, nullptr), nullptr);
  zorbe_change change{};
  expectFailure(reader, zorbe_next(reader, &change), ZORBE_E_DENIED, "table 't': ");
  EXPECT_EQ(stateOf(reader), ZORBE_REFUSED);
}

TEST_F(CFound, FilesOfAnotherVersionAreRefused) {
  {
    CTable writer;
    ASSERT_EQ(openWriter(writer), 0);
  }
  const uint64_t version = offsetof(Table::Prologue, version);
  overwriteWord(inRoot("t/slots"), version / 8 * 8, ~uint64_t{0});
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  zorbe_change change{};
  expectFailure(reader, zorbe_next(reader, &change), ZORBE_E_VERSION, "table 't': ");
  CTable writer;
  EXPECT_EQ(openWriter(writer), ZORBE_E_VERSION);
}

TEST_F(CFound, DamageIsReported) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  writer.close();
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  const auto bytes = std::filesystem::file_size(inRoot("t/slots"));
  ASSERT_GT(bytes, 4096u);
  const uint32_t slots = 1024;
  for (uint64_t offset = bytes / 64 * 64 - uint64_t{slots} * 64; offset < bytes; offset += 64) {
    overwriteWord(inRoot("t/slots"), offset, 1);  // the guards: a store that nobody makes
  }
  uint64_t cursor = 0;
  expectFailure(reader, zorbe_scan(reader, &cursor, nullptr, nullptr), ZORBE_E_CORRUPT, "t");
  EXPECT_EQ(zorbe_count(reader), 0u);
  EXPECT_EQ(zorbe_error(reader), ZORBE_E_CORRUPT);
}

}  // namespace
}  // namespace Zorbe::Test
