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
#include <fstream>

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
  ASSERT_EQ(::mknod(slots.c_str(), S_IFSOCK | 0644, 0), 0);
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

TEST_F(TableFilesTest, AFileThatAnotherWriterHasJustFinishedIsMadeAgain) {
  useNamedFiles();
  Fault::arm("open", 1, EEXIST).onPath(path("slots.new"));
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kCreated);
  EXPECT_TRUE(table->isInPlace());
}

// Somebody else locks or makes the files in between.
TEST_F(TableFilesTest, AFileThatIsTakenMeanwhileIsAnotherWriters) {
  for (const int error : {EAGAIN, EACCES}) {
    Fault::arm("fcntl", 1, error);
    EXPECT_THROW(openWriter(), DuplicateWriterException);
  }
  Fault::arm("fcntl", 1, ENOLCK);
  expectText("fcntl(F_OFD_SETLK) ", [&] { openWriter(); });
  put(*openWriter(), 1, 10);
  overwriteWord(path("slots"), offsetof(Table::SlotsHeader, keyBytes), 0);  // to be replaced
  Fault::arm("open", 1, EEXIST).onPath(path("slots.new"));
  EXPECT_THROW(openWriter(), DuplicateWriterException);
  Fault::arm("fcntl", 2, EAGAIN);
  EXPECT_THROW(openWriter(), DuplicateWriterException);
  Fault::arm("open", 1, EEXIST).onPath(path("buckets.new"));
  expectText("open() " + path("buckets.new") + ": File exists", [&] { openWriter(); });
  EXPECT_EQ(openWriter()->start(), TableWriter::Start::kReplaced);
}

TEST_F(TableFilesTest, WhatCannotBeThereNeedNotBeRemoved) {
  put(*openWriter(), 1, 10);
  Fault::arm("unlink", 1, ENOTDIR).onPath(path("slots.new"));
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kContinued);
}

TEST_F(TableFilesTest, ATableThatIsRemovedWhileItIsMadeAgainIsMadeByTheNextAttempt) {
  const auto table = openWriter();
  put(*table, 1, 10);
  EXPECT_EQ(get(*table->recreate(), 1), 10u) << "in its place";
  const auto again = openWriter();
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  Fault::before("lstat", 2, [&] { ASSERT_EQ(::unlink(path("slots").c_str()), 0); });
  expectText(path("slots") + " was removed or replaced again at once", [&] { again->recreate(); });
  EXPECT_EQ(get(*again->recreate(), 1), 10u);
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

TEST_F(TableFilesTest, AFileThatCannotBeOpenedTwiceIsAnError) {
  const std::string fd = "/proc/self/fd/";
  for (unsigned call = 1; call <= 40; ++call) {
    Fault::armAny(call, [=](const Fault::InterceptedCall& victim) -> std::optional<Fault::Failure> {
      if (victim.call != "open" || victim.target.compare(0, fd.size(), fd) != 0) return {};
      return Fault::Failure{EMFILE};
    });
  }
  allowUnfiredFaults();
  expectText("open() " + options.place.directory + ": Too many open files", [&] { openWriter(); });
}

TEST_F(TableFilesTest, ABootIdThatIsNoneIsAnError) {
  Fault::redirect("open", "/proc/sys/kernel/random/boot_id", "/dev/null");
  const std::string text = "read() /proc/sys/kernel/random/boot_id: Invalid argument";
  expectText(text, [&] { openWriter(); });
  for (const char* id :
       {"0123456789abcdef-0123456789abcdef-0\n", "0123456789abcdef-0123456789ABCDEF\n"}) {
    Fault::reset();
    std::ofstream(inRoot("boot_id")) << id;
    Fault::redirect("open", "/proc/sys/kernel/random/boot_id", inRoot("boot_id"));
    expectText(text, [&] { openWriter(); });
  }
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

// Its mapping is too small for the slots that were added, and the files are no longer there.
TEST_F(TableFilesTest, AReaderMapsWhatWasAddedWhenTheFilesAreReplaced) {
  if (kIsSanitized) GTEST_SKIP() << "the sanitizer has an mmap() of its own";
  const auto table = openWriter();
  put(*table, 1, 10);
  Fault::arm("mmap", 2, ENOMEM);  // with room to grow
  const auto reader = openReader();
  for (uint64_t key = 2; key < 1000; ++key) put(*table, key, key);
  for (const char* name : {"slots", "buckets"}) ASSERT_EQ(::unlink(path(name).c_str()), 0);
  EXPECT_EQ(get(*reader, 1), 10u);
  put(*openWriter(), 1, 11);  // another table
  EXPECT_EQ(get(*reader, 999), 999u);
  EXPECT_EQ(get(*reader, 1), 10u);
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
