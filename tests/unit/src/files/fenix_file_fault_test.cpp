// SPDX-License-Identifier: MIT
#include <zorbe/fenix_file.h>

#include "fault/fault.h"
#include "unit/src/files/file_fixture.h"

#include <gmock/gmock.h>
#include <zorbe/exceptions.h>

#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class FenixFileFaultTest : public FileTest {
 protected:
  FenixFileFaultTest() : FileTest("fenix") {
    FenixFile::write(handler, rootPath(), 7);
    Fault::reset();
  }

  Message unread() const { return {2, "FenixFile::read() unable to read fenixId from " + file}; }
};

TEST_F(FenixFileFaultTest, AFileThatCannotBeOpenedHoldsNone) {
  Fault::arm("open", 1, EMFILE).onPath(file);
  EXPECT_EQ(FenixFile::read(handler, rootPath()), 0u);
  EXPECT_THAT(handler.take(), ElementsAre(unopened("Too many open files"), unread()));
}

TEST_F(FenixFileFaultTest, AFileThatCannotBeReadHoldsNone) {
  handler.expectFailures();
  Fault::arm("read", 1, EIO).onPath(file);
  EXPECT_THROW(FenixFile::validate(handler, rootPath(), 7), CorruptionDetectedException);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(1, "Util::fileRead() failed to read from " + file +
                                                        " error: Input/output error"),
                                          unread(),
                                          Logged(0, "FenixFile::validate() fenix changed " +
                                                        rootPath() + " fenixId:0 expectedId:7")));
}

TEST_F(FenixFileFaultTest, AFileThatCannotBeWrittenIsThrownWithErrno) {
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  Fault::arm("fopen", 1, EACCES).onPath(file);
  try {
    FenixFile::write(handler, rootPath(), 8);
    FAIL();
  } catch (const Brask::RuntimeException&) {
    EXPECT_EQ(errno, EACCES);
  }
  EXPECT_EQ(FenixFile::read(handler, rootPath()), 7u);
}

TEST_F(FenixFileFaultTest, AFailingChmodIsNoFailure) {
  Fault::arm("chmod", 1, EPERM).onPath(file);
  EXPECT_NO_THROW(FenixFile::write(handler, rootPath(), 8));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(1, "Util::fileWrite chmod() " + file +
                                                        " error: Operation not permitted")));
}

}  // namespace
}  // namespace Zorbe::Test
