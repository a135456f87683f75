// SPDX-License-Identifier: MIT
#include "support/recording_handler.h"

#include <gtest/gtest-spi.h>

#include <cerrno>
#include <sstream>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class RecordingHandlerTest : public testing::Test {
 protected:
  void log(int level, const std::string& text) {
    if (!handler.isEnabled(level)) return;
    std::ostringstream stream;
    stream.precision(12);
    stream << text;
    handler.emit(stream, level);
  }

  RecordingHandler handler;
};

TEST_F(RecordingHandlerTest, KeepsLevelAndTextInOrder) {
  log(5, "one");
  log(2, "two");
  EXPECT_THAT(handler.messages(), ElementsAre(Logged(5, "one"), Logged(2, StartsWith("tw"))));
  EXPECT_THAT(handler.texts(2), ElementsAre("two"));
  EXPECT_EQ(handler.messages().front(), (Message{5, "one"}));
  EXPECT_EQ(testing::PrintToString(handler.messages().front()), "level 5: \"one\"");
}

TEST_F(RecordingHandlerTest, DistinguishesLevelsAndTexts) {
  log(5, "one");
  EXPECT_THAT(handler.messages(), testing::Not(ElementsAre(Logged(4, "one"))));
  EXPECT_THAT(handler.messages(), testing::Not(ElementsAre(Logged(5, "on"))));
}

TEST_F(RecordingHandlerTest, TakeForgetsWhatItReturns) {
  log(5, "one");
  EXPECT_EQ(handler.take().size(), 1u);
  EXPECT_TRUE(handler.messages().empty());
}

TEST_F(RecordingHandlerTest, WantsNothingAboveTheMaximalLevel) {
  handler.setMaxLevel(2);
  log(3, "no");
  log(2, "yes");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2, "yes")));
  handler.setMaxLevel(RecordingHandler::kNothing);
  log(0, "no");
  EXPECT_TRUE(handler.messages().empty());
  handler.verifyFailures();
}

TEST_F(RecordingHandlerTest, CountsQuestions) {
  handler.setMaxLevel(1);
  log(1, "yes");
  log(9, "no");
  log(9, "no");
  EXPECT_EQ(handler.queries(), 3u);
  EXPECT_EQ(handler.queries(9), 2u);
}

TEST_F(RecordingHandlerTest, RemembersThePrecisionOfTheStream) {
  log(1, "");
  EXPECT_EQ(handler.precision(), 12);
}

TEST_F(RecordingHandlerTest, TrashesErrnoInBothCalls) {
  handler.clobberErrno(EXDEV);
  errno = 0;
  EXPECT_TRUE(handler.isEnabled(1));
  EXPECT_EQ(errno, EXDEV);
  errno = 0;
  std::ostringstream stream;
  handler.emit(stream, 1);
  EXPECT_EQ(errno, EXDEV);
}

TEST_F(RecordingHandlerTest, ThrowsAtOneMessageAndKeepsTheOthers) {
  handler.throwAt(2);
  log(1, "first");
  EXPECT_THROW(log(1, "second"), std::logic_error);
  log(1, "third");
  EXPECT_THAT(handler.texts(1), ElementsAre("first", "third"));
}

TEST_F(RecordingHandlerTest, FailsATestThatEmitsUnasked) {
  std::ostringstream stream;
  EXPECT_NONFATAL_FAILURE(handler.emit(stream, 1), "without being asked");
  EXPECT_TRUE(handler.isEnabled(2));
  EXPECT_NONFATAL_FAILURE(handler.emit(stream, 3), "without being asked");
}

TEST_F(RecordingHandlerTest, OneQuestionAllowsOneMessage) {
  log(1, "");
  std::ostringstream stream;
  EXPECT_NONFATAL_FAILURE(handler.emit(stream, 1), "without being asked");
}

}  // namespace
}  // namespace Zorbe::Test
