// SPDX-License-Identifier: MIT
//
// What a table cannot do: the error names the table and what to do about it, and nothing is lost.
#include "unit/table/damage.h"

#include "support/table_fixture.h"

#include "fault/fault.h"

#include <zorbe/exceptions.h>

#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

namespace Zorbe::Test {
namespace {

using Table::ErrorCode;
using Table::TableWriter;
using testing::HasSubstr;

class TableRefusal : public TableTest {
 protected:
  static constexpr uint64_t kRecords = 20;

  void makeTable() { makeFilledTable(kRecords); }

  void expectNothingLost() {
    const auto table = openWriter();
    EXPECT_EQ(table->start(), TableWriter::Start::kContinued);
    EXPECT_EQ(table->size(), kRecords);
    for (uint64_t key = 0; key < kRecords; ++key) EXPECT_EQ(get(*table, key), key);
  }
};

TEST_F(TableRefusal, EachFailingCallSaysWhatToDo) {
  struct Reason {
    int error;
    ErrorCode code;
    const char* advice;
  };
  constexpr const char* kFreeSpace = "; free space there, or ask for fewer records";
  constexpr const char* kGiveTheRight = "; give this user the right, or use another root directory";
  constexpr const char* kRemoveIt =
      "; something else has this name: remove it, or use another root directory";
  const Reason reasons[] = {
      {ENOSPC, ErrorCode::noSpace, kFreeSpace},
      {EDQUOT, ErrorCode::noSpace, kFreeSpace},
      {EFBIG, ErrorCode::noSpace,
       "; raise the file size limit (ulimit -f), or ask for fewer records"},
      {EROFS, ErrorCode::denied,
       "; mount the file system for writing, or use another root directory"},
      {EACCES, ErrorCode::denied, kGiveTheRight},
      {EPERM, ErrorCode::denied, kGiveTheRight},
      {EMFILE, ErrorCode::system, "; raise the limit of descriptors (ulimit -n)"},
      {ENFILE, ErrorCode::system, "; raise the host's limit of open files (fs.file-max)"},
      {EISDIR, ErrorCode::system, kRemoveIt},
      {ENOTDIR, ErrorCode::system, kRemoveIt},
      {ENAMETOOLONG, ErrorCode::system, "; use a shorter name or root directory"},
      {ENOMEM, ErrorCode::system, "; raise the limit of address space (ulimit -v)"},
  };
  makeTable();
  for (const Reason& reason : reasons) {
    SCOPED_TRACE(reason.advice);
    const auto table = openWriter();
    Fault::arm("rename", 1, reason.error);
    const std::string text = std::strerror(reason.error) + std::string(reason.advice);
    expectErrorText(reason.code, testing::EndsWith(text), [&] {
      for (uint64_t key = 1000; key < 2000; ++key) put(*table, key, key);
    });
    for (uint64_t key = 1000; key < 2000; ++key) static_cast<void>(erase(*table, key));
    EXPECT_EQ(table->size(), kRecords);
  }
  expectNothingLost();
}

TEST_F(TableRefusal, AFileSystemThatIsMountedForReading) {
  makeTable();
  Fault::arm("open", 1, EROFS).onPath(path("slots"));
  Fault::arm("unlink", 1, EROFS);
  expectError(ErrorCode::denied, "unlink() " + path("slots.new") + ": Read-only file system; mount",
              [&] { openWriter(); });
  EXPECT_EQ(get(*openReader(), 5), 5u);
  Fault::reset();
  expectNothingLost();
}

TEST_F(TableRefusal, FilesOfAnotherVersionOrByteOrder) {
  makeTable();
  const uint64_t versionAt = offsetof(Table::Prologue, version);
  const uint64_t orderAt = offsetof(Table::Prologue, byteOrder);
  const std::string advice = "; remove it, or use another root directory";
  overwriteWord(path("slots"), versionAt, 2);
  const std::string version = path("slots") + " has version 2 instead of 1" + advice;
  expectError(ErrorCode::version, version, [&] { openWriter(); });
  expectError(ErrorCode::version, version, [&] { openReader(); });
  overwriteWord(path("slots"), versionAt, 1);
  overwriteWord(path("slots"), orderAt, __builtin_bswap64(Table::kByteOrder));
  const std::string order = path("slots") + " was written by a host of the other byte order";
  expectError(ErrorCode::version, order + advice, [&] { openWriter(); });
  expectError(ErrorCode::version, order + advice, [&] { openReader(); });
  overwriteWord(path("slots"), orderAt, Table::kByteOrder);
  expectNothingLost();
  options.replaceOtherSchema = true;
  overwriteWord(path("slots"), versionAt, 2);
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
  EXPECT_THAT(table->whyReplaced(), HasSubstr("has version 2"));
}

TEST_F(TableRefusal, AnotherSchema) {
  makeTable();
  options.schema.description = "key u8 0\nvalue S42 8\n";
  expectError(ErrorCode::schema, "set Options::replaceOtherSchema to replace the table",
              [&] { openWriter(); });
  options.schema.description = "key u8 0\nvalue V42 8\n";
  expectNothingLost();
}

TEST_F(TableRefusal, FilesOfAnotherUserThanTheOneAskedFor) {
  makeTable();
  Table::ReaderOptions reading{options.place, {}};
  reading.place.owner = ::geteuid() + 1;
  expectError(ErrorCode::denied,
              " belongs to user " + std::to_string(::geteuid()) + " and not to " +
                  std::to_string(::geteuid() + 1) + "; see Options::owner",
              [&] { Table::TableReader::open(reading); });
  reading.place.owner = ::geteuid();
  EXPECT_NE(Table::TableReader::open(reading), nullptr);
}

TEST_F(TableRefusal, AFullTableAndATakeoverWithSmallerOptionsLoseNothing) {
  makeTable();
  options.records = 1;
  options.maxRecords = 10;
  options.logEntries = 4;
  const auto table = openWriter();
  EXPECT_EQ(table->size(), kRecords);
  const std::string full =
      "it holds 20 records, which is Options::maxRecords; erase records or "
      "raise the limit";
  expectError(ErrorCode::full, full, [&] { put(*table, 1000, 1); });
  put(*table, 5, 55);
  EXPECT_EQ(get(*table, 5), 55u);
  for (uint64_t key = 0; key < 11; ++key) EXPECT_TRUE(erase(*table, key));
  put(*table, 1000, 1);
  EXPECT_EQ(table->size(), 10u);
  expectError(ErrorCode::full, "it holds 10 records", [&] { put(*table, 1001, 1); });
  for (uint64_t key = 11; key < kRecords; ++key) EXPECT_EQ(get(*table, key), key);
}

TEST_F(TableRefusal, ATakeoverThatHasNoRoomForAnIndexLosesNothing) {
  makeTable();
  ASSERT_EQ(::unlink(path("buckets").c_str()), 0);
  Fault::arm("posix_fallocate", 1, ENOSPC);
  expectError(ErrorCode::noSpace, "posix_fallocate() " + path("buckets.new"),
              [&] { openWriter(); });
  EXPECT_NE(::access(path("buckets.new").c_str(), F_OK), 0);
  expectNothingLost();
}

// Its user has taken the writer's away and put another in its place.
TEST_F(TableRefusal, AFileOfAnotherUserInTheWritersPlaceIsReplaced) {
  makeTable();
  auto table = openWriter();
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  std::ofstream(path("slots")) << "mine now";
  Fault::arm("open", 1, EACCES).onPath(path("slots"));
  table = table->recreate();
  EXPECT_TRUE(table->isInPlace());
  for (uint64_t key = 0; key < kRecords; ++key) EXPECT_EQ(get(*openReader(), key), key);
}

TEST_F(TableRefusal, ATableOfAnotherUserThatNobodyWritesIsReplaced) {
  makeTable();
  Fault::arm("open", 1, EACCES).onPath(path("slots"));
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
  EXPECT_THAT(table->whyReplaced(), HasSubstr("Permission denied"));
  EXPECT_TRUE(table->isInPlace());
  EXPECT_EQ(table->size(), 0u);
}

TEST_F(TableRefusal, AFileOfAnotherUserWhoWritesItIsNotReplaced) {
  makeTable();
  const auto table = openWriter();
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  std::ofstream(path("slots")) << "mine now";
  const auto theirs = Table::File::open(options.place, "slots", Table::Access::kWrite);
  ASSERT_TRUE(theirs->tryLock());
  EXPECT_THROW(table->recreate(), DuplicateWriterException);
  Fault::arm("open", 1, EACCES).onPath(path("slots"));
  EXPECT_THROW(table->recreate(), DuplicateWriterException);
  Fault::arm("open", 1, EACCES).onPath(path("slots"));
  EXPECT_THROW(openWriter(), DuplicateWriterException);
  Fault::arm("open", 1, EMFILE).onPath(path("slots"));
  expectError(ErrorCode::system, "ulimit -n", [&] { table->recreate(); });
  EXPECT_FALSE(table->isInPlace());
  EXPECT_EQ(get(*table, 5), 5u);
}

timespec jumpedTo{};

int jumpingClock(clockid_t clock, timespec* time) {
  if (clock == CLOCK_REALTIME) {
    *time = jumpedTo;
    return 0;
  }
  const Fault::Bypass bypass;
  return ::clock_gettime(clock, time);
}

TEST_F(TableRefusal, AClockThatJumpsChangesNothing) {
  Fault::divert("clock_gettime", jumpingClock);
  const auto table = openWriter();
  const auto reader = openReader();
  Copy copy(*reader);
  uint64_t round = 0;
  for (const time_t seconds :
       {time_t{1'700'000'000}, time_t{0}, time_t{4'000'000'000}, time_t{1}}) {
    jumpedTo.tv_sec = seconds;
    put(*table, 1, ++round);
    EXPECT_TRUE(table->publish());
    EXPECT_EQ(reader->publishedAt(), static_cast<uint64_t>(seconds) * 1'000'000'000);
    copy.drain();
    EXPECT_EQ(copy.records[1], round);
    EXPECT_EQ(openReader()->published(), round);
  }
  EXPECT_EQ(copy.resets, 1u);
}

}  // namespace
}  // namespace Zorbe::Test
