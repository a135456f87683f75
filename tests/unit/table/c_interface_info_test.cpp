// SPDX-License-Identifier: MIT
//
// What the table's interface in C says about a table.
#include "unit/table/c_table.h"

#include <memory>

namespace Zorbe::Test {
namespace {

using CInfo = CInterface;

TEST_F(CInfo, AWriterKnowsItsRecords) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  zorbe_info info{};
  info.size = sizeof info;
  info.lag = 99;
  EXPECT_EQ(zorbe_get_info(writer, &info), 0);
  EXPECT_EQ(info.size, sizeof info);
  EXPECT_EQ(info.state, ZORBE_WRITING);
  EXPECT_EQ(info.records, 1u);
  EXPECT_EQ(info.key_bytes, 4u);
  EXPECT_EQ(info.value_bytes, sizeof(Record));
  EXPECT_EQ(info.incarnation | info.published | info.position | info.lag, 0u);
}

TEST_F(CInfo, AReaderKnowsHowFarItHasRead) {
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  zorbe_info info{};
  info.size = sizeof info;
  EXPECT_EQ(zorbe_get_info(reader, &info), 0);
  EXPECT_EQ(info.state, ZORBE_WAITING);
  EXPECT_EQ(info.key_bytes | info.value_bytes | info.incarnation | info.records, 0u);
  CTable writer;
  options.records = 77;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  EXPECT_EQ(put(writer, 2, 10), 0);
  EXPECT_EQ(zorbe_publish(writer), 0);
  EXPECT_EQ(zorbe_refresh(reader), ZORBE_REPLACED);
  zorbe_change change{};
  EXPECT_EQ(zorbe_next(reader, &change), 0);
  EXPECT_EQ(put(writer, 2, 11), 0);
  EXPECT_EQ(zorbe_publish(writer), 0);
  EXPECT_EQ(zorbe_get_info(reader, &info), 0);
  EXPECT_EQ(info.state, ZORBE_CONNECTED);
  EXPECT_EQ(info.origin, ZORBE_LOCAL);
  EXPECT_EQ(info.published, 3u);
  EXPECT_EQ(info.position, 2u);
  EXPECT_EQ(info.lag, 1u);
  EXPECT_EQ(info.records, 77u);
  EXPECT_EQ(info.key_bytes, 4u);
  EXPECT_EQ(info.value_bytes, sizeof(Record));
  EXPECT_NE(info.incarnation, 0u);
  EXPECT_GT(info.published_at, 0);
  EXPECT_EQ(info.origin_since, 0);
  writer.close();
  EXPECT_NE(zorbe_wait(reader, 100'000'000), ZORBE_E_SYSTEM);
}

TEST_F(CInfo, AReaderSeesWhereRecordsComeFromAndThatTheWriterHasEnded) {
  Table::Options own;
  own.root = rootPath();
  auto writer = std::make_unique<Table::Writer<uint32_t, Record>>("t", own);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  zorbe_info info{};
  info.size = sizeof info;
  writer->setOrigin(Table::Origin::mirrored);
  EXPECT_EQ(zorbe_get_info(reader, &info), 0);
  EXPECT_EQ(info.origin, ZORBE_MIRRORED);
  EXPECT_GT(info.origin_since, 0);
  writer->setOrigin(Table::Origin::mirroredLost);
  EXPECT_EQ(zorbe_get_info(reader, &info), 0);
  EXPECT_EQ(info.origin, ZORBE_MIRRORED_LOST);
  writer.reset();
  const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(kDeadline);
  while (info.state != ZORBE_ORPHANED && std::chrono::steady_clock::now() < end) {
    EXPECT_EQ(zorbe_process(reader), 0);
    EXPECT_EQ(zorbe_get_info(reader, &info), 0);
  }
  EXPECT_EQ(info.state, ZORBE_ORPHANED);
}

TEST_F(CInfo, InfoHasTheSizeOfTheProgram) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  struct {
    zorbe_info info;
    char later[8];
  } larger{};
  std::memset(&larger, 0x55, sizeof larger);
  larger.info.size = sizeof larger;
  EXPECT_EQ(zorbe_get_info(writer, &larger.info), 0);
  EXPECT_EQ(larger.info.state, ZORBE_WRITING);
  EXPECT_EQ(larger.info.size, sizeof larger);
  EXPECT_EQ(std::string(larger.later, sizeof larger.later), std::string(8, '\0'));
  zorbe_info smaller{};
  std::memset(&smaller, 0x55, sizeof smaller);
  smaller.size = offsetof(zorbe_info, origin);
  EXPECT_EQ(zorbe_get_info(writer, &smaller), 0);
  EXPECT_EQ(smaller.state, ZORBE_WRITING);
  EXPECT_EQ(smaller.origin, 0x55555555);
  smaller.size = offsetof(zorbe_info, origin) - 1;
  expectFailure(writer, zorbe_get_info(writer, &smaller), ZORBE_E_USAGE, "zorbe_info: size");
  expectFailure(writer, zorbe_get_info(writer, nullptr), ZORBE_E_USAGE, "zorbe_info: size");
}

TEST_F(CInfo, FieldsAreTheDescription) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  for (zorbe_table* table :
       {static_cast<zorbe_table*>(writer), static_cast<zorbe_table*>(reader)}) {
    size_t n = 0;
    const zorbe_field* fields = zorbe_fields(table, &n);
    const std::vector<zorbe_field> expected = recordFields();
    ASSERT_EQ(n, expected.size());
    EXPECT_EQ(zorbe_fields(table, nullptr), fields);
    for (size_t i = 0; i < n; ++i) {
      EXPECT_STREQ(fields[i].name, expected[i].name);
      EXPECT_EQ(fields[i].part, expected[i].part);
      EXPECT_EQ(fields[i].type, expected[i].type);
      EXPECT_EQ(fields[i].bytes, expected[i].bytes);
      EXPECT_EQ(fields[i].count, expected[i].count);
      EXPECT_EQ(fields[i].offset, expected[i].offset);
    }
  }
}

}  // namespace
}  // namespace Zorbe::Test
