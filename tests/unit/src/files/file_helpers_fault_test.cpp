// SPDX-License-Identifier: MIT
#include <zorbe/util.h>

#include "unit/src/files/file_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>

#include <cerrno>
#include <new>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FileHelpersFaultTest : public FileTest {
 protected:
  off_t length() {
    struct stat status = {};
    const Fault::Bypass bypass;
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    return status.st_size;
  }
  /// Lets the handler leave another errno than the one that is asked about.
  void expectFailuresAndTrash(int error) {
    handler.expectFailures();
    handler.clobberErrno(error);
  }
};

TEST_F(FileHelpersFaultTest, AFileThatCannotBeWrittenIsThrownWithErrno) {
  put("content");
  expectFailuresAndTrash(ENOENT);
  Fault::arm("fopen", 1, EACCES).onPath(file);
  const std::string text = "Util::fileWrite() unable to write " + file +  //
                           " reason: Permission denied";
  try {
    Util::fileWrite(handler, file, "abc", false);
    FAIL();
  } catch (const Brask::RuntimeException& caught) {
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(caught.what(), text);
  }
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  EXPECT_EQ(Fault::calls("chmod"), 0u);
  EXPECT_EQ(length(), 7);
}

TEST_F(FileHelpersFaultTest, ThrowsWhenLoggingIsOff) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  try {
    Util::fileWrite(handler, inRoot("none/file"), "abc", false);
    FAIL();
  } catch (const Brask::RuntimeException& caught) {
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(caught.msg(), "Brask::RuntimeException(\"Util::fileWrite() unable to write " +
                                inRoot("none/file") + " reason: No such file or directory\")");
  }
}

TEST_F(FileHelpersFaultTest, WithoutThrowingTheModeIsOpenedNevertheless) {
  put("content");
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  expectFailuresAndTrash(EXDEV);
  Fault::arm("fopen", 1, EACCES).onPath(file);
  EXPECT_NO_THROW(Util::fileWrite(handler, file, "abc", true));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "Util::fileWrite() unable to write " + file +
                                                        " reason: Permission denied")));
  struct stat status = {};
  EXPECT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0666u);
  EXPECT_EQ(length(), 7);
}

TEST_F(FileHelpersFaultTest, WithoutThrowingAMissingDirectoryIsReportedTwice) {
  expectFailuresAndTrash(EXDEV);
  const std::string missing = inRoot("none/file");
  EXPECT_NO_THROW(Util::fileWrite(handler, missing, "abc", true));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "Util::fileWrite() unable to write " + missing +
                                                        " reason: No such file or directory"),
                                          Logged(1, "Util::fileWrite chmod() " + missing +
                                                        " error: No such file or directory")));
}

TEST_F(FileHelpersFaultTest, AFailingChmodIsLoggedAndTheFileStays) {
  handler.clobberErrno(EXDEV);
  Fault::arm("chmod", 1, EPERM).onPath(file);
  Util::fileWrite(handler, file, "abc", false);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(1, "Util::fileWrite chmod() " + file +
                                                        " error: Operation not permitted")));
  EXPECT_EQ(length(), 4);
}

TEST_F(FileHelpersFaultTest, AFullDiskIsNotReported) {
  put("content");
  Fault::arm("write", 1, ENOSPC, Fault::kForever).onPath(file);
  EXPECT_NO_THROW(Util::fileWrite(handler, file, "abc", false));
  EXPECT_THAT(handler.take(), IsEmpty());
  EXPECT_EQ(length(), 0);
  EXPECT_EQ(Fault::calls("chmod"), 1u);
}

TEST_F(FileHelpersFaultTest, TouchOpensForReadingAndAppendingAndClosesAtOnce) {
  int flags = -1;
  Fault::startJournal();
  Fault::before("close", 1, [&] { flags = fcntl(openDescriptor(), F_GETFL); });
  EXPECT_TRUE(Util::touch(handler, file));
  EXPECT_EQ(flags & (O_ACCMODE | O_APPEND), O_RDONLY | O_APPEND);
  EXPECT_THAT(Fault::journal(), ElementsAre("umask", "open", "close", "umask"));
}

TEST_F(FileHelpersFaultTest, TouchRestoresTheUmaskWhenOpenFails) {
  expectFailuresAndTrash(EXDEV);
  umask(027);
  Fault::arm("open", 1, EROFS).onPath(file);
  EXPECT_FALSE(Util::touch(handler, file));
  EXPECT_EQ(umask(022), 027u);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "Util::touch() unable to open " + file +
                                                        " reason: Read-only file system")));
}

TEST_F(FileHelpersFaultTest, TouchNamesTheDescriptorThatFailsToClose) {
  expectFailuresAndTrash(EXDEV);
  umask(027);
  const int next = dup(0);
  ASSERT_EQ(close(next), 0);
  Fault::arm("close", 1, EIO);
  EXPECT_FALSE(Util::touch(handler, file));
  EXPECT_EQ(umask(022), 027u);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(0, "Util::touch() unable to close fd:" + std::to_string(next) +
                                        " reason: Input/output error")));
  EXPECT_EQ(Fault::calls("close"), 2u);  // the one above, and one
}

TEST_F(FileHelpersFaultTest, MemSizeIsComputedIn32Bits) {
  put("");
  Fault::alterStat("stat", 1, [](struct stat& status) {
    status.st_blocks = (1L << 23) + 3;  // 4 GiB and three blocks
    status.st_size = 1;
  });
  EXPECT_EQ(Util::memSize(handler, file), 3u * 512);
  Fault::alterStat("stat", 1, [](struct stat& status) { status.st_blocks = (1L << 23) - 1; });
  EXPECT_EQ(Util::memSize(handler, file), 0xfffffe00u);
}

TEST_F(FileHelpersFaultTest, MemSizeIsZeroWhenStatFails) {
  put("content");
  expectFailuresAndTrash(EXDEV);
  Fault::arm("stat", 1, EACCES).onPath(file);
  EXPECT_EQ(Util::memSize(handler, file), 0u);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(0, "Util::memSize() " + file + " failed: Permission denied")));
}

TEST_F(FileHelpersFaultTest, ReasonsThatAreMissingAreLeftOut) {
  expectFailuresAndTrash(EXDEV);
  put("content");
  Fault::arm("strerror", 1, 0, Fault::kForever);
  Fault::arm("open", 1, EROFS).onPath(file);
  Fault::arm("stat", 1, EACCES).onPath(file);
  Fault::arm("open", 2, EACCES).onPath(file);
  Fault::arm("read", 1, EIO).onPath(file);
  Util::touch(handler, file);
  Util::memSize(handler, file);
  Util::fileRead(handler, file, true);
  Util::fileRead(handler, file, true);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(0, "Util::touch() unable to open " + file + " reason: "),
                          Logged(0, "Util::memSize() " + file + " failed: "),
                          Logged(5, "Util::fileRead() unable to open file " + file + ": "),
                          Logged(1, "Util::fileRead() failed to read from " + file + " error: ")));
}

TEST_F(FileHelpersFaultTest, FormatsNoReasonThatIsNotLogged) {
  put("content");
  handler.setMaxLevel(RecordingHandler::kNothing);
  Fault::arm("open", 1, EROFS).onPath(file);
  Fault::arm("close", 1, EIO);
  Fault::arm("stat", 1, EACCES).onPath(file);
  Fault::arm("open", 3, EACCES).onPath(file);
  Fault::arm("chmod", 1, EPERM).onPath(file);
  EXPECT_FALSE(Util::touch(handler, file));
  EXPECT_FALSE(Util::touch(handler, file));
  EXPECT_EQ(Util::memSize(handler, file), 0u);
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  Util::fileWrite(handler, file, "abc", false);
  Util::fileWrite(handler, inRoot("none/file"), "abc", true);
  EXPECT_EQ(Fault::calls("strerror"), 0u);
}

TEST_F(FileHelpersFaultTest, ACorruptionThatCannotBeReportedKeepsItsErrno) {
  expectFailuresAndTrash(ENOENT);
  Fault::arm("fopen", 1, EACCES).onPath(inRoot("corruption-detected"));
  try {
    Util::writeCorruptionFile(handler, rootPath(), "bad magic");
    FAIL();
  } catch (const Brask::RuntimeException&) {
    EXPECT_EQ(errno, EACCES);
  }
}

TEST_F(FileHelpersFaultTest, AMarkerThatThereIsNoMemoryForIsNoMissingDirectory) {
  handler.failWithBadAlloc();
  EXPECT_THROW(Util::writeCorruptionFile(handler, inRoot("gone"), "bad magic"), std::bad_alloc);
}

}  // namespace
}  // namespace Zorbe::Test
