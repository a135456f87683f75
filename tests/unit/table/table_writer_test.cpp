// SPDX-License-Identifier: MIT
#include "support/table_fixture.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>
#include <unistd.h>

#include <fstream>

namespace Zorbe::Test {
namespace {

using Table::Error;
using Table::ErrorCode;
using Table::TableWriter;
using testing::HasSubstr;

class TableWriterTest : public TableTest {
 protected:
  template <class Act>
  static ErrorCode codeOf(Act act) {
    try {
      act();
    } catch (const Error& error) {
      return error.code();
    }
    return ErrorCode::system;
  }
};

TEST_F(TableWriterTest, FindsWhatWasPut) {
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kCreated);
  put(*table, 7, 70);
  put(*table, 8, 80);
  put(*table, 7, 71);
  EXPECT_EQ(get(*table, 7), 71u);
  EXPECT_EQ(get(*table, 8), 80u);
  EXPECT_EQ(get(*table, 9), std::nullopt);
  EXPECT_EQ(table->size(), 2u);
}

TEST_F(TableWriterTest, AnErasedKeyIsGoneAndComesBackToItsSlot) {
  const auto table = openWriter();
  put(*table, 7, 70);
  EXPECT_TRUE(erase(*table, 7));
  EXPECT_FALSE(erase(*table, 7));
  EXPECT_FALSE(erase(*table, 8));
  EXPECT_EQ(get(*table, 7), std::nullopt);
  EXPECT_EQ(table->size(), 0u);
  put(*table, 7, 71);
  EXPECT_EQ(get(*table, 7), 71u);
  EXPECT_EQ(table->slots().memory().stateOf(1), Table::kFree);
}

TEST_F(TableWriterTest, ANewKeyDoesNotTakeTheSlotOfARecentErasure) {
  options.records = 1;
  options.logEntries = 4;
  const auto table = openWriter();
  put(*table, 1, 10);  // change 1
  erase(*table, 1);    // change 2
  put(*table, 2, 20);  // change 3: the slot of 1 rests for 4 changes
  EXPECT_EQ(table->slots().memory().stateOf(0), Table::kErased);
  put(*table, 2, 21);
  put(*table, 2, 22);  // change 5
  put(*table, 3, 30);  // change 6 is 4 later than change 2
  EXPECT_EQ(table->slots().memory().stateOf(0), Table::kLive);
  EXPECT_EQ(get(*table, 1), std::nullopt);
  EXPECT_EQ(get(*table, 2), 22u);
  EXPECT_EQ(get(*table, 3), 30u);
}

TEST_F(TableWriterTest, PublishSaysWhetherThereWasSomething) {
  const auto table = openWriter();
  EXPECT_FALSE(table->publish());
  put(*table, 7, 70);
  EXPECT_EQ(table->published(), 0u);
  EXPECT_TRUE(table->publish());
  EXPECT_EQ(table->published(), 1u);
  EXPECT_FALSE(table->publish());
}

TEST_F(TableWriterTest, PublishesByItselfBeforeAQuarterOfTheLogIsUnpublished) {
  options.logEntries = 16;
  const auto table = openWriter();
  for (uint64_t i = 0; i < 5; ++i) put(*table, 1, i);
  EXPECT_EQ(table->published(), 4u);
}

TEST_F(TableWriterTest, GrowsAndKeepsEveryRecord) {
  const auto table = openWriter();
  for (uint64_t key = 0; key < 5000; ++key) put(*table, key, key * 3);
  EXPECT_GE(table->capacity(), 5000u);
  EXPECT_GT(table->index().generation(), 1u);
  EXPECT_GT(table->log().generation(), 1u);
  for (uint64_t key = 0; key < 5000; ++key) ASSERT_EQ(get(*table, key), key * 3);
}

TEST_F(TableWriterTest, ContinuesWhatAnEarlierWriterLeft) {
  {
    const auto table = openWriter();
    fill(*table, 100);
    erase(*table, 5);
  }
  options.records = 1;  // what is there decides
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kContinued);
  EXPECT_EQ(table->size(), 99u);
  EXPECT_EQ(table->published(), 101u);
  EXPECT_EQ(get(*table, 5), std::nullopt);
  for (uint64_t key = 6; key < 100; ++key) ASSERT_EQ(get(*table, key), key);
  put(*table, 5, 55);
  EXPECT_EQ(get(*table, 5), 55u);
  EXPECT_EQ(table->size(), 100u);
}

TEST_F(TableWriterTest, ASecondWriterIsRefused) {
  const auto table = openWriter();
  EXPECT_THROW(openWriter(), DuplicateWriterException);
  put(*table, 1, 10);
  EXPECT_EQ(get(*table, 1), 10u);
}

TEST_F(TableWriterTest, IsRefusedWhileSomebodyFillsANewFile) {
  const int fd = ::open(path("slots").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(fd, F_OFD_SETLK, &lock), 0);
  EXPECT_THROW(openWriter(), DuplicateWriterException);
  ASSERT_EQ(::close(fd), 0);
  EXPECT_EQ(openWriter()->start(), TableWriter::Start::kReplaced);
}

TEST_F(TableWriterTest, AFullTableRefusesAndStaysAsItIs) {
  options.maxRecords = 3;
  const auto table = openWriter();
  fill(*table, 3);
  EXPECT_EQ(codeOf([&] { put(*table, 3, 3); }), ErrorCode::full);
  put(*table, 2, 22);
  EXPECT_EQ(table->size(), 3u);
  erase(*table, 0);
  put(*table, 3, 33);
  EXPECT_EQ(get(*table, 3), 33u);
  EXPECT_EQ(codeOf([&] { put(*table, 0, 0); }), ErrorCode::full);
  EXPECT_EQ(get(*table, 0), std::nullopt);
}

TEST_F(TableWriterTest, ChurnInAFullTableNeverRunsOutOfSlots) {
  options.records = options.maxRecords = 8;
  options.logEntries = 64;
  const auto table = openWriter();
  fill(*table, 8);
  for (uint64_t key = 8; key < 5000; ++key) {
    ASSERT_TRUE(erase(*table, key - 8));
    put(*table, key, key);
  }
  EXPECT_LE(table->capacity(), 8 + table->log().entries());
  for (uint64_t key = 4992; key < 5000; ++key) EXPECT_EQ(get(*table, key), key);
}

TEST_F(TableWriterTest, AnotherDescriptionIsRefusedUnlessItIsToBeReplaced) {
  openWriter();
  options.schema.description = "key i8 0\n";
  try {
    openWriter();
    ADD_FAILURE() << "was not refused";
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), ErrorCode::schema);
    EXPECT_THAT(error.what(), HasSubstr("key u8 0\nvalue V42 8\n"));
    EXPECT_THAT(error.what(), HasSubstr("key i8 0\n"));
  }
  options.replaceOtherSchema = true;
  EXPECT_EQ(openWriter()->start(), TableWriter::Start::kReplaced);
}

TEST_F(TableWriterTest, FilesHaveTheirModeWhateverTheUmask) {
  options.mode = 0640;
  const mode_t umask = ::umask(0777);
  const auto table = openWriter();
  ::umask(umask);
  for (const char* name : {"slots", "buckets", "conquer.1"}) {
    struct stat status {};
    ASSERT_EQ(::stat(path(name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_mode & 07777, 0640u) << name;
  }
}

TEST_F(TableWriterTest, GoesOnInNewFilesAfterItsDirectoryWasRemoved) {
  auto table = openWriter();
  fill(*table, 100);
  erase(*table, 50);
  table->publish();
  ASSERT_EQ(::system(("rm -r " + options.place.directory).c_str()), 0);
  EXPECT_FALSE(table->isInPlace());
  EXPECT_THROW(table->recreate(), Error);
  EXPECT_EQ(get(*table, 1), 1u);
  ASSERT_EQ(::mkdir(options.place.directory.c_str(), 0755), 0);
  table = table->recreate();
  EXPECT_TRUE(table->isInPlace());
  EXPECT_EQ(table->size(), 99u);
  EXPECT_EQ(table->published(), 101u);
  EXPECT_EQ(get(*table, 50), std::nullopt);
  for (uint64_t key = 51; key < 100; ++key) ASSERT_EQ(get(*table, key), key);
}

TEST_F(TableWriterTest, LeftOversOfAKilledWriterAreRemoved) {
  openWriter();
  for (const char* name : {"slots.new", "buckets.new", "conquer.1.new", "conquer.2.new"}) {
    std::ofstream(path(name)) << "left over";
  }
  openWriter();
  for (const char* name : {"slots.new", "buckets.new", "conquer.1.new", "conquer.2.new"}) {
    EXPECT_NE(::access(path(name).c_str(), F_OK), 0) << name;
  }
}

TEST_F(TableWriterTest, WhatIsNoFileIsReplaced) {
  ASSERT_EQ(::mkfifo(path("slots").c_str(), 0666), 0);
  EXPECT_THROW(openReader(), CorruptionDetectedException);
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
  EXPECT_THAT(table->whyReplaced(), HasSubstr("not a regular file"));
}

}  // namespace
}  // namespace Zorbe::Test
