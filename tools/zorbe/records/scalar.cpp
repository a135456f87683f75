// SPDX-License-Identifier: MIT
#include "records/scalar.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "output/text.h"
#include "records/bad_input.h"

namespace Zorbe::Tool {

namespace {

constexpr const char* kDigits = "0123456789abcdef";

template <class Number>
Number load(const unsigned char* from) {
  Number number;
  std::memcpy(&number, from, sizeof number);
  return number;
}

template <class Number>
void appendNumber(std::string& out, Number number) {
  char text[32];  // the longest number has 24 characters
  const std::to_chars_result end = std::to_chars(text, text + sizeof text, number);
  out.append(text, end.ptr);
}

template <class Number>
std::string rangeOf() {
  if constexpr (std::is_floating_point_v<Number>) return "";
  std::string text = ": from ";
  appendNumber(text, std::numeric_limits<Number>::lowest());
  text += " to ";
  appendNumber(text, std::numeric_limits<Number>::max());
  return text;
}

template <class Number>
void storeNumber(std::string_view text, unsigned char* to) {
  Number number{};
  const char* const end = text.data() + text.size();
  const std::from_chars_result found = std::from_chars(text.data(), end, number);
  if (found.ec == std::errc::invalid_argument || found.ptr != end) {
    throw BadInput(quoted(text) +
                   (std::is_floating_point_v<Number> ? " is no number" : " is no integer"));
  }
  if (found.ec != std::errc())
    throw BadInput(quoted(text) + " is out of range" + rangeOf<Number>());
  std::memcpy(to, &number, sizeof number);
}

// Calls `use` with a number of the column's type.
template <class Use>
void withType(const Column& column, Use use) {
  switch (column.type << 4 | static_cast<int>(column.bytes)) {
    case 'i' << 4 | 1:
      return use(int8_t{});
    case 'i' << 4 | 2:
      return use(int16_t{});
    case 'i' << 4 | 4:
      return use(int32_t{});
    case 'i' << 4 | 8:
      return use(int64_t{});
    case 'u' << 4 | 1:
      return use(uint8_t{});
    case 'u' << 4 | 2:
      return use(uint16_t{});
    case 'u' << 4 | 4:
      return use(uint32_t{});
    case 'u' << 4 | 8:
      return use(uint64_t{});
    case 'f' << 4 | 4:
      return use(float{});
    default:
      return use(double{});
  }
}

template <class Number>
bool isNotANumber(Number number) {
  return number != number;
}

template <class Byte>
Byte* elementAt(Byte* part, const Column& column, uint32_t element) {
  return part + column.offset + size_t{element} * column.bytes;
}

// A length that damaged memory says is cut off, as Zorbe::Table::Text does.
size_t lengthOf(const Column& column, const Record& record, const unsigned char* text) {
  if (column.lengthBytes == 0) {
    size_t length = column.bytes;
    while (length > 0 && text[length - 1] == 0) --length;
    return length;
  }
  const unsigned char* at = record.part(column) + column.lengthAt;
  const size_t length = column.lengthBytes == 1 ? *at : load<uint16_t>(at);
  return std::min<size_t>(length, column.bytes);
}

void storeText(std::string_view text, const Column& column, Record& record, unsigned char* to) {
  if (text.size() > column.bytes) {
    throw BadInput(quoted(text) + " has " + std::to_string(text.size()) +
                   " bytes, and there is room for " + std::to_string(column.bytes));
  }
  if (!text.empty()) std::memcpy(to, text.data(), text.size());
  if (column.lengthBytes == 0) {
    const bool isLost = !text.empty() && text.back() == '\0';
    if (isLost) throw BadInput(quoted(text) + " ends with a zero byte, which would be lost");
    return;
  }
  unsigned char* at = record.part(column) + column.lengthAt;
  const auto length = static_cast<uint16_t>(text.size());
  if (column.lengthBytes == 1) {
    *at = static_cast<unsigned char>(length);
  } else {
    std::memcpy(at, &length, sizeof length);
  }
}

void appendHex(std::string& out, const unsigned char* from, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) {
    out += kDigits[from[i] >> 4];
    out += kDigits[from[i] & 15U];
  }
}

int digitOf(char c) {
  const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
  const char* found = lower == '\0' ? nullptr : std::strchr(kDigits, lower);
  return found == nullptr ? -1 : static_cast<int>(found - kDigits);
}

void storeHex(std::string_view text, unsigned char* to, size_t bytes) {
  const auto isDigit = [](char c) { return digitOf(c) >= 0; };
  if (text.size() != 2 * bytes || !std::all_of(text.begin(), text.end(), isDigit)) {
    throw BadInput(quoted(text) + " is not " + std::to_string(2 * bytes) + " hexadecimal digits");
  }
  for (size_t i = 0; i < bytes; ++i) {
    to[i] = static_cast<unsigned char>(digitOf(text[2 * i]) * 16 + digitOf(text[2 * i + 1]));
  }
}

void storeBoolean(std::string_view text, unsigned char* to) {
  const bool isTrue = text == "true" || text == "1";
  if (!isTrue && text != "false" && text != "0") {
    throw BadInput(quoted(text) + " is neither true nor false");
  }
  *to = isTrue ? 1 : 0;
}

}  // namespace

std::string quoted(std::string_view text) {
  constexpr size_t kLongest = 60;
  const bool isLong = text.size() > kLongest;
  return "'" + printable(std::string(text.substr(0, kLongest))) + (isLong ? "...'" : "'");
}

void Record::clear() {
  std::fill(key.begin(), key.end(), 0);
  std::fill(value.begin(), value.end(), static_cast<unsigned char>(0));
}

const unsigned char* Record::part(const Column& column) const {
  return column.isKey ? reinterpret_cast<const unsigned char*>(key.data()) : value.data();
}

unsigned char* Record::part(const Column& column) {
  return column.isKey ? reinterpret_cast<unsigned char*>(key.data()) : value.data();
}

void appendScalar(std::string& out, const Column& column, const Record& record, uint32_t element) {
  const unsigned char* const from = elementAt(record.part(column), column, element);
  switch (column.type) {
    case 'S':
      out.append(reinterpret_cast<const char*>(from), lengthOf(column, record, from));
      break;
    case 'V':
      appendHex(out, from, column.bytes);
      break;
    case 'b':
      out += *from != 0 ? "true" : "false";
      break;
    default:
      withType(column, [&](auto zero) { appendNumber(out, load<decltype(zero)>(from)); });
  }
}

void storeScalar(std::string_view text, const Column& column, Record& record, uint32_t element) {
  unsigned char* const to = elementAt(record.part(column), column, element);
  switch (column.type) {
    case 'S':
      return storeText(text, column, record, to);
    case 'V':
      return storeHex(text, to, column.bytes);
    case 'b':
      return storeBoolean(text, to);
    default:
      return withType(column, [&](auto zero) { storeNumber<decltype(zero)>(text, to); });
  }
}

int compareScalars(const Column& column, const Record& a, const Record& b, uint32_t element) {
  const unsigned char* const one = elementAt(a.part(column), column, element);
  const unsigned char* const other = elementAt(b.part(column), column, element);
  if (column.type == 'S') {
    const auto textAt = [&](const Record& record, const unsigned char* at) {
      return std::string_view(reinterpret_cast<const char*>(at), lengthOf(column, record, at));
    };
    return textAt(a, one).compare(textAt(b, other));
  }
  int order = std::memcmp(one, other, column.bytes);
  if (column.type == 'V' || column.type == 'b') return order;
  withType(column, [&](auto zero) {
    const auto left = load<decltype(zero)>(one);
    const auto right = load<decltype(zero)>(other);
    if (left < right || right < left) order = left < right ? -1 : 1;
    const bool isNaN = isNotANumber(left);  // last, so that there is one order of all
    if (isNaN != isNotANumber(right)) order = isNaN ? 1 : -1;
  });
  return order;
}

bool isNonFinite(const Column& column, const Record& record, uint32_t element) {
  if (column.type != 'f') return false;
  const unsigned char* const from = elementAt(record.part(column), column, element);
  if (column.bytes == 4) return !std::isfinite(load<float>(from));
  return !std::isfinite(load<double>(from));
}

}  // namespace Zorbe::Tool
