// SPDX-License-Identifier: MIT
//
// What a table on the bundled loop refuses, and with which error.
#include "unit/table/in_loop_fixture.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zorbe::Test {
namespace {

TEST_F(InLoop, ASecondWriterIsRefused) {
  handler.expectFailures();
  Writer writer("t", options);
  EXPECT_THROW(Writer("t", options), DuplicateWriterException);
  writer.put(1, {10, 0});
}

TEST_F(InLoop, AReaderOfOtherFieldsIsRefusedOnceAndRecovers) {
  auto other = std::make_unique<Table::LoopWriter<uint32_t, int64_t>>("t", options);
  other->put(1, 10);
  Reader reader("t", options);
  EXPECT_EQ(reader.state(), State::refused);
  try {
    reader.next();
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::schema);
    EXPECT_THAT(error.what(), testing::HasSubstr("value value i8 0\n"));
    EXPECT_THAT(error.what(), testing::HasSubstr("value a i8 0\n"));
  }
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_EQ(reader.get(1), std::nullopt);
  other.reset();
  options.replaceOtherSchema = true;
  Writer writer("t", options);
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
  EXPECT_EQ(reader.state(), State::connected);
}

TEST_F(InLoop, AReaderOfTheFirstFieldsReadsALargerRecord) {
  Table::LoopWriter<uint32_t, LargerRecord> writer("t", options);
  writer.put(1, {10, 20, 30});
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  EXPECT_EQ(reader.get(1)->b, 20);
}

TEST_F(InLoop, AKeyThatIsTooLongIsRefusedAndNotFound) {
  Table::LoopWriter<Table::Text<4>, int> writer("t", options);
  writer.put("ABCD", 1);
  try {
    writer.put("ABCDE", 2);
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::tooLarge);
    EXPECT_STREQ(error.what(),
                 "table 't', key 'ABCDE': the key has 5 bytes and its type room for 4");
  }
  EXPECT_EQ(writer.get("ABCDE"), std::nullopt);
  EXPECT_FALSE(writer.contains("ABCDE"));
  EXPECT_FALSE(writer.erase("ABCDE"));
  EXPECT_EQ(writer.get("ABCD"), 1);
  EXPECT_EQ(writer.size(), 1u);
}

TEST_F(InLoop, AFullTableNamesTheKey) {
  options.records = options.maxRecords = 1;
  Writer writer("t", options);
  writer.put(1, {10, 0});
  try {
    writer.put(2, {20, 0});
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::full);
    EXPECT_EQ(error.key(), "2");
  }
}

TEST_F(InLoop, NamesAndRootsThatCannotWorkAreRefused) {
  EXPECT_THROW(Reader("", options), Table::Error);
  EXPECT_THROW(Reader("t/", options), Table::Error);
  EXPECT_THROW(Reader(std::string(92, 'x'), options), Table::Error);
  options.root = "relative";
  EXPECT_THROW(Reader("t", options), Table::Error);
}

TEST_F(InLoop, ADirectoryThatCannotBeMadeIsAnErrorOfTheWriter) {
  ASSERT_EQ(::close(::creat(inRoot("t").c_str(), 0644)), 0);
  try {
    Writer writer("t", options);
    ADD_FAILURE() << "was made";
  } catch (const Table::Error& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("table 't': mkpath() " + inRoot("t")));
  }
}

}  // namespace
}  // namespace Zorbe::Test
