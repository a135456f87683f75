// SPDX-License-Identifier: MIT
#include <zorbe/util.h>

#include "support/converting_locale.h"
#include "unit/src/files/file_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FileReadTest : public FileTest {
 protected:
  auto loggedRead(const std::string& content) {
    return ElementsAre(Logged(5, "Util::fileRead() read " + file + " '" + content + "'"));
  }
};

TEST_F(FileReadTest, ReadsAWholeFile) {
  put("one\ntwo\n");
  EXPECT_EQ(Util::fileRead(handler, file, false), "one\ntwo\n");
  EXPECT_THAT(handler.take(), loggedRead("one\ntwo\n"));
}

TEST_F(FileReadTest, ReadsZeroBytesAndBytesFrom0x80) {
  const std::string content("\0a\xff\r\n\x80", 6);
  put(content);
  EXPECT_EQ(Util::fileRead(handler, file, true), content);
  EXPECT_THAT(handler.take(), loggedRead(content));
}

TEST_F(FileReadTest, ReadsFilesAboutAsLongAsItsBuffers) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  for (const size_t size : {4095u, 4096u, 4097u, 8190u, 8191u, 8192u, 100000u}) {
    std::string content(size, 'x');
    content.back() = 'y';
    put(content);
    EXPECT_EQ(Util::fileRead(handler, file, true), content) << size;
  }
}

TEST_F(FileReadTest, AnEmptyFileIsReadAsSuch) {
  put("");
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  EXPECT_THAT(handler.take(), loggedRead(""));
}

TEST_F(FileReadTest, AMissingFileIsEmptyAndLoggedOnRequest) {
  expectUnopened("No such file or directory");
}

TEST_F(FileReadTest, ADirectoryCannotBeRead) {
  EXPECT_EQ(Util::fileRead(handler, rootPath(), true), "");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(1, "Util::fileRead() failed to read from " +
                                                        rootPath() + " error: Is a directory")));
}

TEST_F(FileReadTest, AFileOfProcIsAFile) {
  EXPECT_EQ(Util::fileRead(handler, "/proc/self/stat", true).find(std::to_string(getpid())), 0u);
  EXPECT_THAT(handler.texts(1), IsEmpty());
}

TEST_F(FileReadTest, APipeIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  EXPECT_THAT(handler.take(), failedRead("Invalid argument"));
}

TEST_F(FileReadTest, WhatAPipeHoldsIsNotRead) {
  ASSERT_EQ(mkfifo(file.c_str(), 0666), 0);
  const int pipe = open(file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(pipe, 0);
  EXPECT_EQ(write(pipe, "7\n", 2), 2);
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  EXPECT_EQ(close(pipe), 0);
}

TEST_F(FileReadTest, AnEndlessFileIsNotRead) {
  ASSERT_EQ(symlink("/dev/zero", file.c_str()), 0);
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  EXPECT_THAT(handler.take(), failedRead("Invalid argument"));
}

TEST_F(FileReadTest, AFileOf16MebibytesIsRead) {
  handler.setMaxLevel(1);
  put("");
  ASSERT_EQ(truncate(file.c_str(), 16 << 20), 0);
  EXPECT_EQ(Util::fileRead(handler, file, true), std::string(16 << 20, '\0'));
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(FileReadTest, AFileThatIsTooLargeIsEmpty) {
  put("");
  ASSERT_EQ(truncate(file.c_str(), (16 << 20) + 1), 0);
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  EXPECT_THAT(handler.take(), failedRead("File too large"));
}

TEST_F(FileReadTest, AFileFarTooLargeIsNotReadToItsEnd) {
  put("");
  ASSERT_EQ(truncate(file.c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  EXPECT_THAT(handler.take(), failedRead("File too large"));
}

TEST_F(FileReadTest, AConvertingGlobalLocaleChangesNothing) {
  {
    const ConvertingLocale converting;
    Util::fileWrite(handler, file, "17", false);
    EXPECT_EQ(Util::fileRead(handler, file, true), "17\n");
  }
  EXPECT_EQ(contentOf(file), "17\n");
  EXPECT_THAT(handler.take(), loggedRead("17\n"));
}

}  // namespace
}  // namespace Zorbe::Test
