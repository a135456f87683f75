// SPDX-License-Identifier: MIT
//
// How many messages of the levels 0 and 1 a StreamDebugHandler writes, on a clock of the
// test's own.
#include <brask/linux/stream_debug_handler.h>
#include <gtest/gtest.h>
#include <time.h>

#include <memory>
#include <sstream>
#include <vector>

#include "fault/fault.h"

using Brask::Linux::StreamDebugHandler;
namespace Fault = Zorbe::Test::Fault;

namespace {

time_t seconds = 0;
long nanoseconds = 0;

int tellTime(clockid_t /*clock*/, timespec* now) {
  *now = {seconds, nanoseconds};
  return 0;
}

class LogLimitTest : public ::testing::Test {
 protected:
  LogLimitTest() {
    seconds = 1000;
    nanoseconds = 0;
    Fault::divert("clock_gettime", tellTime);
  }
  ~LogLimitTest() override { Fault::reset(); }

  void limit(unsigned burst, unsigned perSecond) {
    handler = std::make_unique<StreamDebugHandler>(stream, 9,
                                                   StreamDebugHandler::Limit{burst, perSecond});
  }

  void emit(int level, int times = 1) {
    for (int i = 0; i < times; ++i) {
      std::ostringstream message("x");
      handler->emit(message, level);
    }
  }

  /// The lines since the last call, without their times.
  std::vector<std::string> takeLines() {
    std::vector<std::string> lines;
    std::istringstream all(stream.str());
    for (std::string line; std::getline(all, line);) {
      lines.push_back(line.substr(line.find(' ') + 1));
    }
    stream.str("");
    return lines;
  }

  size_t countLines() { return takeLines().size(); }

  static std::string leftOut(int level, int count) {
    return std::to_string(level) +
           " StreamDebugHandler::emit() too many messages of levels 0 and 1, left out: " +
           std::to_string(count);
  }

  using Lines = std::vector<std::string>;
  std::ostringstream stream;
  std::unique_ptr<StreamDebugHandler> handler;
};

}  // namespace

TEST_F(LogLimitTest, NothingIsLeftOutUnlessAskedFor) {
  handler = std::make_unique<StreamDebugHandler>(stream, 9);
  emit(0, 10000);
  EXPECT_EQ(10000u, countLines());
}

TEST_F(LogLimitTest, ABurstIsWrittenAndThenSoManyASecond) {
  limit(200, 50);
  emit(0, 1000);
  EXPECT_EQ(200u, countLines());
  for (int second = 0; second < 5; ++second) {
    ++seconds;
    emit(0, 1000);
    EXPECT_EQ(51u, countLines()) << "with the one that says how many were left out";
  }
}

TEST_F(LogLimitTest, TheLimitIsTwoHundredAtOnceAndFiftyASecondUnlessGiven) {
  handler = std::make_unique<StreamDebugHandler>(stream, 9, StreamDebugHandler::Limit());
  emit(0, 1000);
  EXPECT_EQ(200u, countLines());
  ++seconds;
  emit(0, 1000);
  EXPECT_EQ(51u, countLines());
}

TEST_F(LogLimitTest, OneLineSaysHowManyWereLeftOut) {
  limit(2, 1);
  emit(0, 5);
  EXPECT_EQ((Lines{"0 x", "0 x"}), takeLines());
  ++seconds;
  emit(1, 2);
  EXPECT_EQ((Lines{leftOut(0, 3), "1 x"}), takeLines());
  ++seconds;
  emit(0);
  EXPECT_EQ((Lines{leftOut(1, 1), "0 x"}), takeLines()) << "the level of what was left out";
}

TEST_F(LogLimitTest, TheLowestLevelLeftOutIsThatOfTheLine) {
  limit(1, 1);
  emit(1, 2);
  emit(0);
  emit(1);
  ++seconds;
  emit(1);
  EXPECT_EQ((Lines{"1 x", leftOut(0, 3), "1 x"}), takeLines());
}

TEST_F(LogLimitTest, OtherLevelsAreNotLimited) {
  limit(1, 1);
  emit(2, 100);
  emit(9, 100);
  emit(0, 3);
  emit(2, 100);
  EXPECT_EQ(301u, countLines());
}

TEST_F(LogLimitTest, AnyLineBringsTheCountOnceThereIsRoom) {
  limit(1, 1);
  emit(0, 3);
  emit(2);
  EXPECT_EQ((Lines{"0 x", "2 x"}), takeLines());
  ++seconds;
  emit(2);
  emit(0);
  EXPECT_EQ((Lines{leftOut(0, 2), "2 x", "0 x"}), takeLines());
}

TEST_F(LogLimitTest, TheDestructorSaysWhatWasLeftOutLast) {
  limit(1, 1);
  emit(0, 4);
  handler.reset();
  EXPECT_EQ((Lines{"0 x", leftOut(0, 3)}), takeLines());
  limit(1, 1);
  emit(0);
  handler.reset();
  EXPECT_EQ(Lines{"0 x"}, takeLines());
}

TEST_F(LogLimitTest, AQuietTimeMakesRoomForTheBurstAndNoMore) {
  limit(10, 4);
  emit(0, 20);
  takeLines();
  seconds += 2;
  emit(0, 20);
  EXPECT_EQ(1u + 8u, countLines());
  seconds += 1000000000;
  emit(0, 20);
  EXPECT_EQ(1u + 10u, countLines());
}

TEST_F(LogLimitTest, AQuietTimeAfterPartOfTheBurstMakesRoomForNoMoreEither) {
  limit(10, 4);
  for (const int quiet : {1, 2, 1000}) {
    emit(0, 7);
    seconds += quiet;
    takeLines();
    emit(0, 20);
    EXPECT_EQ(quiet == 1 ? 7u : 10u, countLines()) << quiet;
    seconds += 1000;
    emit(2);
    takeLines();
  }
}

TEST_F(LogLimitTest, TheTimeIsCutToMicroseconds) {
  limit(2, 1);
  seconds = 1234567;
  nanoseconds = 1999;
  emit(0);
  nanoseconds = 999999999;
  emit(0);
  EXPECT_EQ("1234567.000001 0 x\n1234567.999999 0 x\n", stream.str());
}

TEST_F(LogLimitTest, LessThanASecondMakesNoRoomButCounts) {
  limit(1, 1);
  emit(0);
  nanoseconds = 999999999;
  emit(0);
  EXPECT_EQ(Lines{"0 x"}, takeLines());
  ++seconds;
  nanoseconds = 0;
  emit(0);
  EXPECT_EQ((Lines{leftOut(0, 1), "0 x"}), takeLines());
}

TEST_F(LogLimitTest, ALimitOfNoneASecondIsTheBurstAlone) {
  limit(3, 0);
  emit(0, 10);
  ++seconds;
  emit(0, 10);
  EXPECT_EQ(3u, countLines());
}

TEST_F(LogLimitTest, AStreamThatThrowsEndsNoDestructor) {
  limit(1, 1);
  emit(0, 2);
  stream.exceptions(std::ios_base::badbit);
  EXPECT_THROW(stream.setstate(std::ios_base::badbit), std::ios_base::failure);
  handler.reset();
  EXPECT_TRUE(stream.bad());
}
