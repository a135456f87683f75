// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Zorbe::Tool {

struct Line {
  uint64_t number = 0;  ///< from 1
  std::string text;     ///< without the line feed
  bool isTooLong = false;
};

/// Splits input that arrives in pieces of any size into lines.
class LineReader {
 public:
  /// Of a line that has more than `longest` bytes, these are kept.
  explicit LineReader(size_t longest) : longest_(longest) {}

  /// More input, which is used up when next() returns false.
  void add(std::string_view input) { input_ = input; }

  /// There is no more: the last line needs no line feed.
  void end() { isAtEnd_ = true; }

  /// The next line; false when it is not complete yet.
  bool next(Line& line);

 private:
  void append(std::string_view piece);

  size_t longest_;
  std::string_view input_;
  bool isAtEnd_ = false;
  uint64_t number_ = 0;
  bool isBegun_ = false;
  Line line_;
};

}  // namespace Zorbe::Tool
