// SPDX-License-Identifier: MIT
//
// The functions of the table's interface in C.
#include "unit/table/c_table.h"

#include <filesystem>
#include <map>

extern "C" int zorbeProgramInC(const char* root);

namespace Zorbe::Test {
namespace {

TEST_F(CInterface, AProgramInCWritesAndReads) {
  EXPECT_EQ(zorbeProgramInC(rootPath().c_str()), 0) << "the line that has failed";
}

TEST_F(CInterface, AWriterWritesAndReadsItsTable) {
  CTable table;
  ASSERT_EQ(openWriter(table), 0) << zorbe_error_text(table);
  EXPECT_EQ(put(table, 1, 10), 0);
  EXPECT_EQ(put(table, 2, 20), 0);
  EXPECT_EQ(zorbe_count(table), 2u);
  EXPECT_EQ(valueOf(table, 1), 10);
  EXPECT_EQ(valueOf(table, 3), -ZORBE_NOT_FOUND);
  EXPECT_EQ(erase(table, 1), 0);
  EXPECT_EQ(erase(table, 1), ZORBE_NOT_FOUND);
  EXPECT_EQ(zorbe_count(table), 1u);
  EXPECT_EQ(zorbe_publish(table), 0);
  uint64_t cursor = 0;
  uint32_t key = 0;
  Record record{};
  EXPECT_EQ(zorbe_scan(table, &cursor, &key, &record), 0);
  EXPECT_EQ(key, 2u);
  EXPECT_EQ(record.a, 20);
  EXPECT_EQ(zorbe_scan(table, &cursor, &key, &record), ZORBE_END);
  EXPECT_EQ(zorbe_error(table), 0);
  EXPECT_STREQ(zorbe_error_text(table), "");
}

TEST_F(CInterface, AReaderReadsWhatAWriterHasPut) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0) << zorbe_error_text(reader);
  EXPECT_EQ(valueOf(reader, 1), 10);
  EXPECT_EQ(valueOf(reader, 2), -ZORBE_NOT_FOUND);
  EXPECT_EQ(put(writer, 2, 20), 0);
  EXPECT_EQ(valueOf(reader, 2), 20);
  EXPECT_EQ(zorbe_count(reader), 2u);
  std::map<uint32_t, int64_t> found;
  uint64_t cursor = 0;
  uint32_t key = 0;
  for (Record record{}; zorbe_scan(reader, &cursor, &key, &record) == 0;) found[key] = record.a;
  EXPECT_EQ(found, (std::map<uint32_t, int64_t>{{1, 10}, {2, 20}}));
  cursor = 0;
  EXPECT_EQ(zorbe_scan(reader, &cursor, nullptr, nullptr), 0);
  EXPECT_EQ(zorbe_scan(reader, &cursor, nullptr, nullptr), 0);
  EXPECT_EQ(zorbe_scan(reader, &cursor, nullptr, nullptr), ZORBE_END);
}

// Some of them far from where the search begins.
TEST_F(CInterface, EveryRecordOfAFullTableIsFound) {
  constexpr uint32_t kRecords = 20000;
  options.records = kRecords;
  CTable writer;
  CTable reader;
  ASSERT_EQ(openWriter(writer), 0);
  for (uint32_t key = 0; key < kRecords; ++key) ASSERT_EQ(put(writer, key, key), 0);
  ASSERT_EQ(openReader(reader), 0);
  for (uint32_t key = 0; key < kRecords; ++key) ASSERT_EQ(valueOf(reader, key), key);
  EXPECT_EQ(valueOf(reader, kRecords), -ZORBE_NOT_FOUND);
}

TEST_F(CInterface, GetWithoutAValueOnlySearches) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  for (zorbe_table* table :
       {static_cast<zorbe_table*>(writer), static_cast<zorbe_table*>(reader)}) {
    uint32_t key = 1;
    EXPECT_EQ(zorbe_get(table, &key, sizeof key, nullptr, 0), 0);
    key = 2;
    EXPECT_EQ(zorbe_get(table, &key, sizeof key, nullptr, 0), ZORBE_NOT_FOUND);
  }
}

TEST_F(CInterface, ChangesFollow) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  EXPECT_EQ(zorbe_publish(writer), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  uint32_t key = 99;
  Record record{99, 99};
  zorbe_change change{0, 0, &key, &record};
  ASSERT_EQ(nextOf(reader, change), 0);
  EXPECT_EQ(change.kind, ZORBE_RESET);
  EXPECT_EQ(change.sequence, 1u);
  EXPECT_EQ(key, 99u);
  ASSERT_EQ(nextOf(reader, change), 0);
  EXPECT_EQ(change.kind, ZORBE_PUT);
  EXPECT_EQ(key, 1u);
  EXPECT_EQ(record.a, 10);
  EXPECT_EQ(change.sequence, 1u);
  ASSERT_EQ(nextOf(reader, change), 0);
  EXPECT_EQ(change.kind, ZORBE_COMPLETE);
  EXPECT_EQ(zorbe_next(reader, &change), ZORBE_END);
  EXPECT_EQ(erase(writer, 1), 0);
  EXPECT_EQ(zorbe_publish(writer), 0);
  key = 99;
  ASSERT_EQ(nextOf(reader, change), 0);
  EXPECT_EQ(change.kind, ZORBE_ERASED);
  EXPECT_EQ(change.sequence, 2u);
  EXPECT_EQ(key, 1u);
}

TEST_F(CInterface, ChangesNeedNoBuffers) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  EXPECT_EQ(zorbe_publish(writer), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  zorbe_change change{};
  for (const int kind : {ZORBE_RESET, ZORBE_PUT, ZORBE_COMPLETE}) {
    ASSERT_EQ(nextOf(reader, change), 0);
    EXPECT_EQ(change.kind, kind);
  }
}

TEST_F(CInterface, WaitSaysWhyItReturns) {
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_EQ(zorbe_wait(reader, 0), ZORBE_TIMEOUT);
  EXPECT_EQ(zorbe_wait(reader, 1000), ZORBE_TIMEOUT);
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(zorbe_wait(reader, -1), 0);
  EXPECT_EQ(zorbe_wait(reader, 0), 0);
}

TEST_F(CInterface, ADescriptorServesAnotherLoop) {
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  const int fd = zorbe_fd(reader);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(zorbe_fd(reader), fd);
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  zorbe_change change{};
  int found = ZORBE_END;
  const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(kDeadline);
  while (found == ZORBE_END && std::chrono::steady_clock::now() < end) {
    EXPECT_EQ(zorbe_process(reader), 0);
    found = zorbe_next(reader, &change);
  }
  EXPECT_EQ(found, 0);
  EXPECT_EQ(change.kind, ZORBE_RESET);
}

TEST_F(CInterface, RefreshSaysWhenAnotherTableIsThere) {
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_EQ(zorbe_refresh(reader), 0);
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  EXPECT_EQ(zorbe_refresh(reader), ZORBE_REPLACED);
  EXPECT_EQ(zorbe_refresh(reader), 0);
  EXPECT_EQ(valueOf(reader, 1), 10);
  writer.close();
  std::filesystem::remove_all(inRoot("t"));
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 11), 0);
  EXPECT_EQ(zorbe_refresh(reader), ZORBE_REPLACED);
  EXPECT_EQ(valueOf(reader, 1), 11);
}

TEST_F(CInterface, OtherLanguagesFindNoPadding) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  unsigned char bytes[sizeof(Record)];
  std::memset(bytes, 0x55, sizeof bytes);
  const uint32_t key = 1;
  EXPECT_EQ(zorbe_put(writer, &key, sizeof key, bytes, sizeof bytes), 0);
  EXPECT_EQ(zorbe_get(writer, &key, sizeof key, bytes, sizeof bytes), 0);
  EXPECT_EQ(bytes[11], 0x55);
  for (size_t i = 12; i < sizeof bytes; ++i) EXPECT_EQ(bytes[i], 0) << i;
}

TEST_F(CInterface, ARecordMayBeAKeyAlone) {
  CTable writer;
  ASSERT_EQ(openWriter(writer, {{"id", ZORBE_KEY, 'u', 8, 0, 0}}), 0) << zorbe_error_text(writer);
  const uint64_t key = 5;
  EXPECT_EQ(zorbe_put(writer, &key, sizeof key, nullptr, 0), 0) << zorbe_error_text(writer);
  EXPECT_EQ(zorbe_get(writer, &key, sizeof key, nullptr, 0), 0);
  char none = 0;
  EXPECT_EQ(zorbe_get(writer, &key, sizeof key, &none, 0), 0);
}

TEST_F(CInterface, TheOtherLanguageReadsAndWritesTheSameTable) {
  Table::Options own;
  own.root = rootPath();
  {
    CTable writer;
    ASSERT_EQ(openWriter(writer), 0);
    EXPECT_EQ(put(writer, 1, 10), 0);
    const Table::Reader<uint32_t, Record> reader("t", own);
    ASSERT_TRUE(reader.get(1));
    EXPECT_EQ(reader.get(1)->a, 10);
  }
  Table::Writer<uint32_t, Record> writer("t", own);
  EXPECT_EQ(writer.get(1)->a, 10);
  writer.put(2, {20, 21});
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  EXPECT_EQ(valueOf(reader, 1), 10);
  EXPECT_EQ(valueOf(reader, 2), 20);
}

}  // namespace
}  // namespace Zorbe::Test
