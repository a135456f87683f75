// SPDX-License-Identifier: MIT
#include <zorbe/util.h>

#include "support/descriptor_zero.h"
#include "unit/src/files/file_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FileHelpersTest : public FileTest {
 protected:
  static mode_t permissionsOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777u;
  }
};

TEST_F(FileHelpersTest, AFileIsOpenToAllOnlyWhenItIsWhole) {
  Fault::startJournal();
  Util::fileWrite(handler, file, "content", false);
  EXPECT_THAT(Fault::journal(), ElementsAre("fopen", "write", "fclose", "chmod"));
}

TEST_F(FileHelpersTest, TouchesWithDescriptorZero) {
  const DescriptorZero zero;
  zero.free();
  EXPECT_TRUE(Util::touch(handler, file));
  EXPECT_FALSE(DescriptorZero::isOpen());
}

TEST_F(FileHelpersTest, WritesContentAndANewline) {
  Util::fileWrite(handler, file, "abc", false);
  EXPECT_EQ(contentOf(file), "abc\n");
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(FileHelpersTest, ReplacesWhatWasThere) {
  put("something longer than the new content");
  Util::fileWrite(handler, file, "", false);
  EXPECT_EQ(contentOf(file), "\n");
  Util::fileWrite(handler, file, std::string("a\0b\n", 4), true);
  EXPECT_EQ(contentOf(file), std::string("a\0b\n\n", 5));
}

TEST_F(FileHelpersTest, WritesFilesOpenToAllForAnyUmask) {
  umask(077);
  Util::fileWrite(handler, file, "abc", false);
  EXPECT_EQ(permissionsOf(file), 0666u);
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  Util::fileWrite(handler, file, "abc", false);
  EXPECT_EQ(permissionsOf(file), 0666u);
  EXPECT_EQ(umask(077), 077u);
}

TEST_F(FileHelpersTest, TouchCreatesAnEmptyFileOpenToAll) {
  umask(077);
  EXPECT_TRUE(Util::touch(handler, file));
  EXPECT_EQ(contentOf(file), "");
  EXPECT_EQ(permissionsOf(file), 0666u);
  EXPECT_EQ(umask(022), 077u);
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(FileHelpersTest, TouchLeavesAnExistingFileAsItIs) {
  put("content");
  ASSERT_EQ(chmod(file.c_str(), 0640), 0);
  EXPECT_TRUE(Util::touch(handler, file));
  EXPECT_EQ(contentOf(file), "content");
  EXPECT_EQ(permissionsOf(file), 0640u);
}

TEST_F(FileHelpersTest, TouchFailsBelowAMissingDirectory) {
  handler.expectFailures();
  umask(027);
  EXPECT_FALSE(Util::touch(handler, inRoot("none/file")));
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(0, "Util::touch() unable to open " + inRoot("none/file") +
                                        " reason: No such file or directory")));
  EXPECT_EQ(umask(022), 027u);
}

TEST_F(FileHelpersTest, MemSizeCountsBlocksAndNotTheLength) {
  put("");
  ASSERT_EQ(truncate(file.c_str(), 64 << 20), 0);
  EXPECT_LT(Util::memSize(handler, file), 1u << 20);
  put(std::string(1 << 16, 'x'));
  struct stat status = {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(Util::memSize(handler, file), static_cast<uint64_t>(status.st_blocks) * 512);
  EXPECT_THAT(handler.take(), IsEmpty());
}

// Where longs have 32 bits, too.
TEST_F(FileHelpersTest, MemSizeMeasuresFilesThatAreLargeOrOfALaterCentury) {
  put("");
  ASSERT_EQ(truncate(file.c_str(), off_t{1} << 32), 0);
  EXPECT_LT(Util::memSize(handler, file), 1u << 20);
  timespec later = {};
  later.tv_sec = time_t{1} << 32;
  const timespec times[] = {later, later};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_LT(Util::memSize(handler, file), 1u << 20);
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(FileHelpersTest, MemSizeOfAMissingFileIsZero) {
  handler.expectFailures();
  EXPECT_EQ(Util::memSize(handler, file), 0u);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "Util::memSize() " + file +
                                                        " failed: No such file or directory")));
}

TEST_F(FileHelpersTest, ACorruptionIsLeftInAFile) {
  Util::writeCorruptionFile(handler, rootPath(), "bad magic");
  EXPECT_EQ(
      contentOf(inRoot("corruption-detected")),
      "Pid " + std::to_string(getpid()) + " thinks " + rootPath() + " is corrupted: bad magic\n");
  EXPECT_EQ(permissionsOf(inRoot("corruption-detected")), 0666u);
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(FileHelpersTest, ACorruptionInADirectoryThatIsRemovedIsNoError) {
  handler.expectFailures();
  handler.clobberErrno(EACCES);  // the exception alone says what is missing
  Util::writeCorruptionFile(handler, inRoot("gone"), "bad magic");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "Util::fileWrite() unable to write " +
                                                        inRoot("gone/corruption-detected") +
                                                        " reason: No such file or directory")));
}

TEST_F(FileHelpersTest, ACorruptionThatCannotBeReportedIsThrown) {
  handler.expectFailures();
  handler.clobberErrno(ENOENT);
  put("not a directory");
  try {
    Util::writeCorruptionFile(handler, file, "bad magic");
    FAIL();
  } catch (const Brask::RuntimeException& caught) {
    EXPECT_EQ(std::string(caught.what()), "Util::fileWrite() unable to write " + file +
                                              "/corruption-detected reason: Not a directory");
  }
}

TEST_F(FileHelpersTest, RecognizesTheFilesOfATable) {
  for (const char* name : {"slots", "conquer.1", "conquer.2", "buckets", "fenix", "last-owner",
                           "corruption-detected"}) {
    EXPECT_TRUE(Util::isZorbeFile(handler, name));
    EXPECT_THAT(handler.take(),
                ElementsAre(Logged(
                    5, std::string("Util::isZorbeFile() filename: ") + name + " matched: 1")));
  }
}

TEST_F(FileHelpersTest, RecognizesNoOtherNames) {
  for (const char* name : {"", "fenix.tmp", "Fenix", "/r/fenix", "./fenix", "feni", "conquer",
                           "conquer.3", " slots", "slots\n"}) {
    EXPECT_FALSE(Util::isZorbeFile(handler, name)) << name;
    EXPECT_THAT(handler.take(),
                ElementsAre(Logged(
                    5, std::string("Util::isZorbeFile() filename: ") + name + " matched: 0")));
  }
  EXPECT_FALSE(Util::isZorbeFile(handler, std::string("fenix\0", 6)));
}

}  // namespace
}  // namespace Zorbe::Test
