// SPDX-License-Identifier: MIT
#include <zorbe/fenix_file.h>

#include "unit/src/files/file_fixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>

#include <fstream>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FenixFileTest : public FileTest {
 protected:
  FenixFileTest() : FileTest("fenix") {}

  unsigned readOf(const std::string& content) {
    put(content);
    return FenixFile::read(handler, rootPath());
  }

  Message unread() const { return {2, "FenixFile::read() unable to read fenixId from " + file}; }
};

TEST_F(FenixFileTest, WritesTheIdAndANewline) {
  FenixFile::write(handler, rootPath(), 7);
  EXPECT_EQ(contentOf(file), "7\n");
  EXPECT_THAT(handler.take(), IsEmpty());
  struct stat status = {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0666u);
  EXPECT_EQ(FenixFile::read(handler, rootPath()), 7u);
}

TEST_F(FenixFileTest, ReplacesALongerId) {
  for (const unsigned id : {0xffffffffu, 0x80000000u, 1u}) {
    FenixFile::write(handler, rootPath(), id);
    EXPECT_EQ(contentOf(file), std::to_string(id) + "\n");
    EXPECT_EQ(FenixFile::read(handler, rootPath()), id);
  }
}

TEST_F(FenixFileTest, ReportsTheIdThatItReads) {
  EXPECT_EQ(readOf("4294967295\n"), 0xffffffffu);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "Util::fileRead() read " + file + " '4294967295\n'"),
                          Logged(2, "FenixFile::read() read fenixId: 4294967295 from " + file)));
}

TEST_F(FenixFileTest, ReportsThatThereIsNone) {
  EXPECT_EQ(FenixFile::read(handler, rootPath()), 0u);
  EXPECT_THAT(handler.take(), ElementsAre(unopened("No such file or directory"), unread()));
}

TEST_F(FenixFileTest, AZeroCountsAsNone) {
  EXPECT_EQ(readOf("0\n"), 0u);
  EXPECT_THAT(handler.texts(2),
              ElementsAre("FenixFile::read() unable to read fenixId from " + file));
}

TEST_F(FenixFileTest, ReadsAsFarAsThereAreDigits) {
  EXPECT_EQ(readOf("12abc"), 12u);
  EXPECT_EQ(readOf("abc"), 0u);
  EXPECT_EQ(readOf(""), 0u);
  EXPECT_EQ(readOf(" \t\n 42"), 42u);
  EXPECT_EQ(readOf("+5"), 5u);
  EXPECT_EQ(readOf("0x10"), 0u);
  EXPECT_EQ(readOf("010"), 10u);
  EXPECT_EQ(readOf(std::string("1\0002", 3)), 1u);
}

TEST_F(FenixFileTest, TakesTheLow32Bits) {
  EXPECT_EQ(readOf("4294967297"), 1u);
  EXPECT_EQ(readOf("4294967296"), 0u);
  EXPECT_EQ(readOf("-1"), 0xffffffffu);
  EXPECT_EQ(readOf("99999999999999999999"), 0xffffffffu);
}

TEST_F(FenixFileTest, ValidatesTheExpectedId) {
  FenixFile::write(handler, rootPath(), 3000000000u);
  EXPECT_TRUE(FenixFile::validate(handler, rootPath(), 3000000000u));
  EXPECT_EQ(handler.take().size(), 2u);  // those of read
}

TEST_F(FenixFileTest, AMissingFileIsValidForZero) {
  EXPECT_TRUE(FenixFile::validate(handler, rootPath(), 0));
}

TEST_F(FenixFileTest, ThrowsForAnotherId) {
  handler.expectFailures();
  FenixFile::write(handler, rootPath(), 4294967295u);
  const std::string text = "FenixFile::validate() fenix changed " + rootPath() +
                           " fenixId:4294967295 expectedId:2147483648";
  try {
    FenixFile::validate(handler, rootPath(), 0x80000000u);
    FAIL();
  } catch (const CorruptionDetectedException& caught) {
    EXPECT_EQ(caught.what(), text);
  }
  EXPECT_THAT(handler.take().back(), Logged(0, text));
}

TEST_F(FenixFileTest, ThrowsForAMissingFile) {
  handler.expectFailures();
  EXPECT_THROW(FenixFile::validate(handler, rootPath(), 9), CorruptionDetectedException);
  EXPECT_THAT(handler.texts(0), ElementsAre("FenixFile::validate() fenix changed " + rootPath() +
                                            " fenixId:0 expectedId:9"));
}

TEST_F(FenixFileTest, ThrowsWhenLoggingIsOff) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  EXPECT_THROW(FenixFile::validate(handler, rootPath(), 9), CorruptionDetectedException);
}

TEST_F(FenixFileTest, AnEmptyDirectoryIsTheWorkingDirectory) {
  ASSERT_EQ(chdir(rootPath().c_str()), 0);
  FenixFile::write(handler, "", 5);
  EXPECT_EQ(contentOf(file), "5\n");
  EXPECT_EQ(FenixFile::read(handler, ""), 5u);
  EXPECT_THAT(handler.texts(2), ElementsAre("FenixFile::read() read fenixId: 5 from fenix"));
  EXPECT_TRUE(FenixFile::validate(handler, "", 5));
}

TEST_F(FenixFileTest, ValidationOfTheWorkingDirectoryNamesNone) {
  handler.expectFailures();
  ASSERT_EQ(chdir(rootPath().c_str()), 0);
  EXPECT_THROW(FenixFile::validate(handler, "", 5), CorruptionDetectedException);
  EXPECT_THAT(handler.texts(0),
              ElementsAre("FenixFile::validate() fenix changed  fenixId:0 expectedId:5"));
}

TEST_F(FenixFileTest, LetsAFailingWriteThrough) {
  handler.expectFailures();
  const std::string text = "Util::fileWrite() unable to write " + inRoot("none/fenix") +
                           " reason: No such file or directory";
  try {
    FenixFile::write(handler, inRoot("none"), 5);
    FAIL();
  } catch (const Brask::RuntimeException& caught) {
    EXPECT_EQ(caught.what(), text);
  }
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
}

}  // namespace
}  // namespace Zorbe::Test
