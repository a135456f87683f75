// SPDX-License-Identifier: MIT
//
// How a table's files come into being and are opened, when something is in the way.
#include "unit/table/damage.h"

#include "support/sanitized.h"
#include "support/table_fixture.h"

#include "fault/fault.h"

#include <zorbe/exceptions.h>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace Zorbe::Test {
namespace {

using Table::Access;
using Table::Error;
using Table::ErrorCode;
using Table::File;
using Table::TableWriter;
using testing::HasSubstr;

class TableFilesTest : public TableTest {
 protected:
  template <class Act>
  static void expectText(const std::string& text, Act act) {
    try {
      act();
      ADD_FAILURE() << "did not throw: " << text;
    } catch (const Error& error) {
      EXPECT_THAT(error.what(), HasSubstr(text));
      EXPECT_STREQ(error.name(), "Zorbe::Table::Error");
    } catch (const CorruptionDetectedException& corrupt) {
      EXPECT_THAT(corrupt.what(), HasSubstr(text));
    }
  }

  // As on a file system without O_TMPFILE.
  void useNamedFiles() { Fault::arm("open", 1, EOPNOTSUPP).onPath(options.place.directory); }
};

TEST_F(TableFilesTest, WhatIsNoRegularFileIsNotOpened) {
  const std::string slots = path("slots");
  ASSERT_EQ(::symlink("/etc/passwd", slots.c_str()), 0);
  expectText(slots + " is not a regular file", [&] { openReader(); });
  ASSERT_EQ(::unlink(slots.c_str()), 0);
  ASSERT_EQ(::mkfifo(slots.c_str(), 0644), 0);
  expectText(slots + " is not a regular file", [&] { openReader(); });
  ASSERT_EQ(::unlink(slots.c_str()), 0);
  ASSERT_EQ(::mkdir(slots.c_str(), 0755), 0);
  expectText(slots + " is not a regular file", [&] { openReader(); });
  expectText("rename() " + slots + ": Is a directory; something else has this name",
             [&] { openWriter(); });
  ASSERT_EQ(::rmdir(slots.c_str()), 0);
  EXPECT_EQ(openWriter()->start(), TableWriter::Start::kCreated);
}

TEST_F(TableFilesTest, AFileIsMovedWithItsDescriptorAndName) {
  put(*openWriter(), 1, 10);
  File slots = *File::open(options.place, "slots", Access::kRead);
  File index = *File::open(options.place, "buckets", Access::kRead);
  const int fd = slots.fd();
  index = std::move(slots);
  EXPECT_EQ(index.fd(), fd);
  EXPECT_EQ(index.path(), path("slots"));
  EXPECT_TRUE(index.isAt("slots"));
  EXPECT_FALSE(index.isAt("buckets"));
  EXPECT_FALSE(index.isAt("nothing"));
}

TEST_F(TableFilesTest, AFileThatAnotherWriterIsFillingIsLeftAlone) {
  useNamedFiles();
  const auto theirs = File::create(options.place, "slots.new", 0644);
  ASSERT_TRUE(theirs->tryLock());
  EXPECT_THROW(openWriter(), DuplicateWriterException);
  EXPECT_TRUE(theirs->isAt("slots.new"));
}

TEST_F(TableFilesTest, AFileThatNobodyIsFillingIsMadeAgain) {
  useNamedFiles();
  ASSERT_TRUE(File::create(options.place, "slots.new", 0644).has_value());
  const auto table = openWriter();
  put(*table, 1, 10);
  EXPECT_EQ(get(*openReader(), 1), 10u);
  EXPECT_NE(::access(path("slots.new").c_str(), F_OK), 0);
}

TEST_F(TableFilesTest, ANameThatIsTakenAgainAndAgainEndsTheAttempts) {
  useNamedFiles();
  // Unlocked, and there again after each removal.
  Fault::arm("open", 1, EEXIST, Fault::kForever).onPath(path("slots.new"));
  allowUnfiredFaults();
  EXPECT_THROW(openWriter(), Brask::Exception);
}

TEST_F(TableFilesTest, AFileThatIsReplacedAgainAndAgainEndsTheAttempts) {
  put(*openWriter(), 1, 10);
  unsigned replaced = 0;
  for (unsigned i = 1; i <= 64; ++i) {
    Fault::before("lstat", i, [&] {
      ++replaced;
      std::filesystem::copy_file(path("slots"), path("other"));
      std::filesystem::rename(path("other"), path("slots"));
    });
  }
  allowUnfiredFaults();
  EXPECT_THROW(openWriter(), DuplicateWriterException);
  EXPECT_GE(replaced, 16u);
  Fault::reset();
  EXPECT_EQ(get(*openWriter(), 1), 10u);
}

TEST_F(TableFilesTest, ALinkOrANameThatCannotBeMadeIsAnError) {
  Fault::arm("linkat", 1, EIO);
  expectText("linkat() " + path("slots"), [&] { openWriter(); });
  useNamedFiles();
  Fault::arm("unlink", 1, EIO).onPath(path("slots.new"));
  expectText("unlink() " + path("slots.new"), [&] { openWriter(); });
  Fault::arm("open", 1, EACCES).onPath(options.place.directory);
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  expectText("open() " + options.place.directory + ": Permission denied; give this user the right",
             [&] { openWriter(); });
}

TEST_F(TableFilesTest, ABootIdThatIsNoneIsAnError) {
  Fault::redirect("open", "/proc/sys/kernel/random/boot_id", "/dev/null");
  expectText("read() /proc/sys/kernel/random/boot_id: Invalid argument", [&] { openWriter(); });
}

TEST_F(TableFilesTest, AMappingThatCannotGrowLeavesTheTableAsItWas) {
  if (kIsSanitized) GTEST_SKIP() << "the sanitizer has an mmap() of its own";
  Fault::arm("mmap", 1, ENOMEM);  // with room to grow
  const auto table = openWriter();
  fill(*table, 16);
  Fault::arm("mremap", 1, ENOMEM);
  expectText("mremap() ", [&] { put(*table, 16, 16); });
  EXPECT_EQ(table->size(), 16u);
  EXPECT_EQ(get(*table, 16), std::nullopt);
  put(*table, 16, 16);
  for (uint64_t key = 0; key < 17; ++key) EXPECT_EQ(get(*openReader(), key), key);
}

TEST_F(TableFilesTest, AnEntryOfTheLogThatNamesNoSlotIsReported) {
  const auto table = openWriter();
  put(*table, 1, 10);
  table->publish();
  const auto reader = openReader();
  Copy copy(*reader);
  copy.drain();
  put(*table, 1, 11);
  table->publish();
  overwriteWord(path(Table::logFileOf(1)), Table::kLogEntries + 2 * 8,
                Table::packEntry(2, 1'000'000));
  expectText("the change log names slot 1000000", [&] { copy.drain(); });
  copy.drain();  // everything again
  EXPECT_EQ(copy.records[1], 11u);
}

}  // namespace
}  // namespace Zorbe::Test
