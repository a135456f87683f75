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

// What a line shows of `text`.
std::string textOf(const std::string& text) {
  const std::string line = written(0, text, 0);
  const size_t start = line.find(' ') + 3;
  return line.substr(start, line.size() - start - 1);
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

TEST(StreamDebugHandlerTest, ControlCharactersAreEscaped) {
  EXPECT_EQ("\\x1b[2J\\r\\t\\x07\\x08\\x7f", textOf("\x1b[2J\r\t\a\b\x7f"));
  EXPECT_EQ("a\\x00b", textOf(std::string("a\0b", 3)));
  for (int code = 0; code < 0x20; ++code) {
    EXPECT_EQ('\\', textOf(std::string(1, static_cast<char>(code))).front()) << code;
  }
  EXPECT_EQ(" ~", textOf(" ~"));
}

TEST(StreamDebugHandlerTest, TheControlCharactersOfUtf8AreEscapedAndItsLettersAreNot) {
  EXPECT_EQ("\\xc2\\x80 \\xc2\\x9b31m \\xc2\\x9f", textOf("\u0080 \u009b31m \u009f"));
  const std::string letters =
      "\u00a0\u00e9\u07ff\u0800\u65e5\ud7ff\ue000\uffff\U00010000\U0001f642\U0010ffff";
  EXPECT_EQ(letters, textOf(letters));
}

TEST(StreamDebugHandlerTest, BytesThatAreNotUtf8AreEscaped) {
  EXPECT_EQ("\\x9b", textOf("\x9b")) << "a control character of eight-bit terminals";
  EXPECT_EQ("\\xe6\\x97", textOf("\xe6\x97")) << "cut off";
  EXPECT_EQ("\\xe6x", textOf("\xe6x"));
  EXPECT_EQ("\\xc1\\xbf", textOf("\xc1\xbf")) << "longer than needed";
  EXPECT_EQ("\\xe0\\x82\\x9b", textOf("\xe0\x82\x9b")) << "likewise";
  EXPECT_EQ("\\xf0\\x8f\\xbf\\xbf", textOf("\xf0\x8f\xbf\xbf")) << "likewise";
  EXPECT_EQ("\\xed\\xa0\\x80", textOf("\xed\xa0\x80")) << "a surrogate";
  EXPECT_EQ("\\xf4\\x90\\x80\\x80", textOf("\xf4\x90\x80\x80")) << "above the last character";
  EXPECT_EQ("\\xf8\\x88\\x80\\x80\\x80", textOf("\xf8\x88\x80\x80\x80"));
  EXPECT_EQ("\\xf8\\x90\\x80\\x80", textOf("\xf8\x90\x80\x80"));
  EXPECT_EQ("\\xff\u00e9", textOf("\xff\u00e9"));
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
