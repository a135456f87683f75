// SPDX-License-Identifier: MIT
#include "foundation/log.h"

#include "fault/fault.h"
#include "support/fixture.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <ios>
#include <new>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LogTest : public ZorbeTest {
 protected:
  int evaluated() { return ++evaluations; }

  int evaluations = 0;
};

TEST_F(LogTest, HandsTheMessageOverWithItsLevel) {
  ZORBE_LOG(handler, kNotable, "LogTest::one() " << 1);
  ZORBE_LOG(handler, kItem, "LogTest::two() " << std::string("two"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(1, "LogTest::one() 1"),  //
                                          Logged(9, "LogTest::two() two")));
}

TEST_F(LogTest, HasSixLevels) {
  EXPECT_EQ(Log::kFailure, 0);
  EXPECT_EQ(Log::kNotable, 1);
  EXPECT_EQ(Log::kMilestone, 2);
  EXPECT_EQ(Log::kRoutine, 3);
  EXPECT_EQ(Log::kStep, 5);
  EXPECT_EQ(Log::kItem, 9);
}

TEST_F(LogTest, QueriesTheLevelOncePerMessage) {
  ZORBE_LOG(handler, kStep, "text");
  EXPECT_EQ(handler.queries(), 1u);
  EXPECT_EQ(handler.queries(5), 1u);
  handler.setMaxLevel(4);
  ZORBE_LOG(handler, kStep, "text");
  EXPECT_EQ(handler.queries(5), 2u);
}

TEST_F(LogTest, EvaluatesNothingWhenTheLevelIsOff) {
  handler.setMaxLevel(4);
  ZORBE_LOG(handler, kStep, "text " << evaluated() << Log::reason(EIO));
  EXPECT_THAT(handler.take(), IsEmpty());
  EXPECT_EQ(evaluations, 0);
  EXPECT_EQ(Fault::calls("strerror"), 0u);
  ZORBE_LOG(handler, kRoutine, "text " << evaluated() << Log::reason(EIO));
  EXPECT_EQ(evaluations, 1);
  EXPECT_EQ(Fault::calls("strerror"), 1u);
}

TEST_F(LogTest, AMessageThatMayBeLostIsLostWhereThereIsNoMemory) {
  handler.failWithBadAlloc();
  EXPECT_THROW(ZORBE_LOG(handler, kStep, "text"), std::bad_alloc);
  EXPECT_NO_THROW(ZORBE_LOG_NOEXCEPT(handler, kStep, "text"));
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(LogTest, AMessageThatMayBeLostIsOtherwiseAnyOther) {
  ZORBE_LOG_NOEXCEPT(handler, kNotable, "text " << 1);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(1, "text 1")));
}

TEST_F(LogTest, ATextIsWholeOrThrows) {
  // As an insertion that runs out of memory.
  const auto words = [](std::ostream& out) { (out << "zorbe_").setstate(std::ios_base::badbit); };
  EXPECT_THROW(Log::text(words), std::ios_base::failure);
}

TEST_F(LogTest, PrintsNumbersWithTwelveDigits) {
  ZORBE_LOG(handler, kStep, 1.0 / 3 << ' ' << 123456789012.5);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "0.333333333333 123456789012")));
  EXPECT_EQ(handler.precision(), 12);
  EXPECT_EQ(ZORBE_TEXT(1.0 / 3), "0.333333333333");
}

TEST_F(LogTest, StartsEachMessageWithAFreshStream) {
  ZORBE_LOG(handler, kStep, std::hex << 255);
  ZORBE_LOG(handler, kStep, 255);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ff"), Logged(5, "255")));
}

TEST_F(LogTest, PrintsTheReasonThatItIsGivenAndNotErrno) {
  handler.clobberErrno(EXDEV);
  errno = EPERM;
  ZORBE_LOG(handler, kStep, "text: " << Log::reason(EIO));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "text: Input/output error")));
}

TEST_F(LogTest, AMissingReasonEndsTheMessage) {
  Fault::arm("strerror", 1, 0);
  ZORBE_LOG(handler, kStep, "text: " << Log::reason(EIO) << " and more");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "text: ")));
}

TEST_F(LogTest, AMissingReasonLeavesTheStreamFailed) {
  std::ostringstream stream;
  stream << "text" << Log::CString{nullptr};
  EXPECT_TRUE(stream.fail());
  EXPECT_FALSE(stream.bad());
  EXPECT_EQ(stream.str(), "text");
  std::ostringstream good;
  good << Log::CString{"text"};
  EXPECT_TRUE(good.good());
}

TEST_F(LogTest, FailLogsWhatItThrows) {
  handler.expectFailures();
  try {
    Log::fail<Brask::RuntimeException>(handler, "LogTest::fail() why");
    FAIL();
  } catch (const Brask::RuntimeException& caught) {
    EXPECT_STREQ(caught.what(), "LogTest::fail() why");
  }
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "LogTest::fail() why")));
}

TEST_F(LogTest, FailThrowsWhenLoggingIsOff) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  EXPECT_THROW(Log::fail<Brask::RuntimeException>(handler, "why"), Brask::RuntimeException);
  EXPECT_EQ(handler.queries(0), 1u);
}

}  // namespace
}  // namespace Zorbe::Test
