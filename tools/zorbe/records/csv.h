// SPDX-License-Identifier: MIT
//
// Comma-separated values as RFC 4180 describes them. Lines end in a line feed, on input also in
// a carriage return and a line feed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zorbe::Tool {

/// Appends a field, in quotes where it needs them.
void appendCsvField(std::string& out, std::string_view field);

struct CsvRow {
  uint64_t line = 0;  ///< where it begins, from 1
  std::vector<std::string> fields;
  std::string error;  ///< empty, or what is wrong with the row; the next one begins on a new line
};

/// Splits input that arrives in pieces of any size into rows and fields.
class CsvReader {
 public:
  /// A row that has more than `longest` bytes is an error.
  explicit CsvReader(size_t longest) : longest_(longest) {}

  /// More input, which is used up when next() returns false.
  void add(std::string_view input) { input_ = input; }

  /// There is no more: the last row needs no line feed.
  void end() { isAtEnd_ = true; }

  /// The next row; false when it is not complete yet.
  bool next(CsvRow& row);

 private:
  enum class State {
    kRowStart,
    kFieldStart,
    kPlain,
    kQuoted,
    kQuote,   // a quotation mark in a quoted field: its end, or the first one of two
    kReturn,  // a carriage return outside of quotes
    kSkip,    // after an error, until the end of the line
  };

  bool take(char c);
  State startField(char c);
  State afterQuote(char c);
  bool finish(CsvRow& row);
  void closeField();
  State fail(const std::string& what);

  size_t longest_;
  std::string_view input_;
  bool isAtEnd_ = false;
  State state_ = State::kRowStart;
  uint64_t line_ = 1;
  size_t bytes_ = 0;  // of the row
  std::string field_;
  CsvRow row_;
};

}  // namespace Zorbe::Tool
