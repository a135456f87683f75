// SPDX-License-Identifier: MIT
#include <zorbe/util.h>

#include "unit/src/files/file_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FileReadFaultTest : public FileTest {};

TEST_F(FileReadFaultTest, AFileThatCannotBeOpenedIsLoggedOnRequest) {
  put("content");
  handler.clobberErrno(EXDEV);
  Fault::arm("open", 1, EACCES, 2).onPath(file);
  expectUnopened("Permission denied");
}

TEST_F(FileReadFaultTest, AFileThatCannotBeReadIsEmpty) {
  put("content");
  handler.clobberErrno(EXDEV);
  Fault::arm("read", 1, EIO).onPath(file);
  EXPECT_EQ(Util::fileRead(handler, file, false), "");
  EXPECT_THAT(handler.take(), failedRead("Input/output error"));
}

TEST_F(FileReadFaultTest, WhatWasReadBeforeAFailureIsReturned) {
  put(std::string(100, 'a') + std::string(100, 'b'));
  Fault::armResult("read", 1, 100).onPath(file);
  Fault::arm("read", 2, EIO).onPath(file);
  EXPECT_EQ(Util::fileRead(handler, file, false), std::string(100, 'a'));
  EXPECT_THAT(handler.take(), failedRead("Input/output error"));
}

TEST_F(FileReadFaultTest, EverythingReadBeforeALateFailureIsReturned) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  put(std::string(20000, 'a'));
  for (const long first : {1L, 4095L, 4096L, 4097L, 6000L}) {
    Fault::reset();
    Fault::armResult("read", 1, first).onPath(file);
    Fault::arm("read", 2, EIO).onPath(file);
    EXPECT_EQ(Util::fileRead(handler, file, false).size(), static_cast<size_t>(first));
  }
}

TEST_F(FileReadFaultTest, ShortAndInterruptedReadsGoOn) {
  put("content");
  Fault::armResult("read", 1, 1).onPath(file);
  Fault::arm("read", 2, EINTR).onPath(file);
  EXPECT_EQ(Util::fileRead(handler, file, true), "content");
}

TEST_F(FileReadFaultTest, AFileThatCannotBeExaminedIsNotRead) {
  put("content");
  handler.clobberErrno(EXDEV);
  Fault::arm("fstat", 1, ENOMEM).onPath(file);
  EXPECT_EQ(Util::fileRead(handler, file, true), "");
  EXPECT_EQ(Fault::calls("read"), 0u);
  EXPECT_THAT(handler.take(), failedRead("Cannot allocate memory"));
}

TEST_F(FileReadFaultTest, AFileIsOpenedWithoutBlockingAndNotBequeathed) {
  put("content");
  int status = 0;
  int flags = 0;
  Fault::before("read", 1, [&] {
    const int fd = openDescriptor();
    status = fcntl(fd, F_GETFL);
    flags = fcntl(fd, F_GETFD);
  });
  EXPECT_EQ(Util::fileRead(handler, file, true), "content");
  EXPECT_EQ(status & (O_ACCMODE | O_NONBLOCK), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(flags, FD_CLOEXEC);
}

TEST_F(FileReadFaultTest, NothingStaysOpenWithoutMemoryForTheMessage) {
  put("content");
  handler.failWithBadAlloc();
  EXPECT_THROW(Util::fileRead(handler, file, true), std::bad_alloc);
}

TEST_F(FileReadFaultTest, AFailingCloseAfterReadingIsNotReported) {
  put("content");
  Fault::arm("close", 1, EIO).onPath(file);
  EXPECT_EQ(Util::fileRead(handler, file, true), "content");
  EXPECT_EQ(handler.take().size(), 1u);
}

}  // namespace
}  // namespace Zorbe::Test
