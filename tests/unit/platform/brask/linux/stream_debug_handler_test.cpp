// SPDX-License-Identifier: MIT
#include <brask/linux/stream_debug_handler.h>
#include <gtest/gtest.h>
#include <time.h>

#include <regex>
#include <sstream>

using Brask::Linux::StreamDebugHandler;

namespace {

std::string written(int maxLevel, const std::string& text, int level) {
  std::ostringstream stream;
  StreamDebugHandler handler(stream, maxLevel);
  std::ostringstream message;
  message << text;
  if (handler.isEnabled(level)) handler.emit(message, level);
  return stream.str();
}

double monotonicSeconds() {
  timespec now{};
  EXPECT_EQ(0, ::clock_gettime(CLOCK_MONOTONIC, &now));
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace

TEST(StreamDebugHandlerTest, WritesTimeLevelAndTextOnOneLine) {
  EXPECT_TRUE(std::regex_match(written(9, "Class::method() words", 5),
                               std::regex(R"(\d+\.\d{6} 5 Class::method\(\) words\n)")));
}

TEST(StreamDebugHandlerTest, TheTimeIsTheMonotonicClock) {
  const double before = monotonicSeconds();
  const double shown = std::stod(written(0, "x", 0));
  EXPECT_GE(shown, before - 1e-6) << "cut to microseconds";
  EXPECT_LE(shown, monotonicSeconds());
}

TEST(StreamDebugHandlerTest, LineBreaksWithinTheTextAreEscaped) {
  const std::string line = written(0, "one\ntwo\n", 0);
  EXPECT_EQ(" 0 one\\ntwo\\n\n", line.substr(line.find(' ')));
}

TEST(StreamDebugHandlerTest, WritesLevelsUpToTheLimitOnly) {
  std::ostringstream stream;
  StreamDebugHandler handler(stream, 2);
  for (const int level : {0, 1, 2}) EXPECT_TRUE(handler.isEnabled(level));
  for (const int level : {3, 5, 9}) EXPECT_FALSE(handler.isEnabled(level));
  EXPECT_EQ("", written(2, "x", 3));
}

TEST(StreamDebugHandlerTest, IsSilentWithALimitBelowEveryLevel) {
  std::ostringstream stream;
  StreamDebugHandler handler(stream, -1);
  std::ostringstream message("x");
  for (const int level : {0, 1, 2, 3, 5, 9}) {
    EXPECT_FALSE(handler.isEnabled(level));
    handler.emit(message, level);
  }
  EXPECT_EQ("", stream.str());
}

TEST(StreamDebugHandlerTest, TheStreamsOwnFormatChangesNothing) {
  std::ostringstream stream;
  stream << std::hex << std::showbase;
  stream.width(30);
  stream.fill('*');
  StreamDebugHandler handler(stream, 99);
  std::ostringstream message("text");
  handler.emit(message, 16);
  const std::string line = stream.str();
  EXPECT_EQ(" 16 text\n", line.substr(line.find(' ')));
  EXPECT_EQ(std::string::npos, line.find('*'));
}
