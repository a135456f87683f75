// SPDX-License-Identifier: MIT
#include "records/csv.h"

#include <utility>

namespace Zorbe::Tool {

void appendCsvField(std::string& out, std::string_view field) {
  if (field.find_first_of(",\"\r\n") == std::string_view::npos) {
    out += field;
    return;
  }
  out += '"';
  for (const char c : field) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}

bool CsvReader::next(CsvRow& row) {
  while (!input_.empty()) {
    const char c = input_.front();
    input_.remove_prefix(1);
    const bool isComplete = take(c);
    if (c == '\n') ++line_;
    if (isComplete) return finish(row);
  }
  if (!isAtEnd_ || state_ == State::kRowStart) return false;
  if (state_ == State::kQuoted) state_ = fail("a quotation mark is not closed");
  if (state_ != State::kSkip) closeField();
  return finish(row);
}

bool CsvReader::finish(CsvRow& row) {
  row = std::exchange(row_, CsvRow{});
  field_.clear();
  bytes_ = 0;
  state_ = State::kRowStart;
  return true;
}

// Whether the character ends the row.
bool CsvReader::take(char c) {
  if (state_ == State::kRowStart) {
    row_.line = line_;
    state_ = State::kFieldStart;
  }
  if (++bytes_ > longest_ && state_ != State::kSkip) {
    state_ = fail("the row has more than " + std::to_string(longest_) + " bytes");
  }
  const bool isLineEnd = c == '\n' && state_ != State::kQuoted;
  if (isLineEnd) {
    if (state_ != State::kSkip) closeField();
    return true;
  }
  switch (state_) {
    case State::kRowStart:
    case State::kFieldStart:
      state_ = startField(c);
      break;
    case State::kPlain:
      state_ = c == '"' ? fail("a quotation mark in a field that does not begin with one")
                        : startField(c);
      break;
    case State::kQuoted:
      if (c != '"') field_ += c;
      if (c == '"') state_ = State::kQuote;
      break;
    case State::kQuote:
      state_ = afterQuote(c);
      break;
    case State::kReturn:
      state_ = fail("a carriage return in a field without quotation marks");
      break;
    case State::kSkip:
      break;
  }
  return false;
}

// Outside of quotes.
CsvReader::State CsvReader::startField(char c) {
  if (c == '"') return State::kQuoted;
  if (c == '\r') return State::kReturn;
  if (c == ',') {
    closeField();
    return State::kFieldStart;
  }
  field_ += c;
  return State::kPlain;
}

CsvReader::State CsvReader::afterQuote(char c) {
  if (c == '"') {
    field_ += c;
    return State::kQuoted;
  }
  if (c == ',' || c == '\r') return startField(c);
  return fail("a character after the closing quotation mark");
}

void CsvReader::closeField() {
  row_.fields.push_back(std::exchange(field_, {}));
}

CsvReader::State CsvReader::fail(const std::string& what) {
  row_.error = what;
  return State::kSkip;
}

}  // namespace Zorbe::Tool
