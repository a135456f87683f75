// SPDX-License-Identifier: MIT
#include "quote.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>

namespace Quotes {

namespace {

constexpr int64_t kPriceUnit = 10000;
constexpr size_t kPriceDigits = 4;
constexpr size_t kLongestWhole = 12;  // keeps every price far inside 64 bits

bool allDigits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

[[noreturn]] void refuse(const std::string& what, std::string_view text, const char* why) {
  throw std::invalid_argument(what + " '" + std::string(text) + "' " + why);
}

int64_t parsePrice(std::string_view text) {
  const size_t point = std::min(text.find('.'), text.size());
  const std::string_view whole = text.substr(0, point);
  std::string fraction(point < text.size() ? text.substr(point + 1) : "0");
  if (!allDigits(whole) || !allDigits(fraction)) refuse("price", text, "is not a decimal number");
  if (whole.size() > kLongestWhole) refuse("price", text, "is too large");
  if (fraction.size() > kPriceDigits) refuse("price", text, "has more than 4 decimals");
  fraction.resize(kPriceDigits, '0');
  return std::stoll(std::string(whole)) * kPriceUnit + std::stoll(fraction);
}

uint32_t parseSize(std::string_view text) {
  uint32_t size = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
  if (error == std::errc::result_out_of_range) refuse("size", text, "is too large");
  if (error != std::errc() || end != text.data() + text.size()) {
    refuse("size", text, "is not a whole number");
  }
  return size;
}

}  // namespace

Row parseRow(const std::string& row) {
  const size_t first = row.find(',');
  const size_t second = first == row.npos ? row.npos : row.find(',', first + 1);
  if (second == row.npos || row.find(',', second + 1) != row.npos) {
    refuse("row", row, "does not have the three fields symbol,price,size");
  }
  const std::string_view fields = row;
  const std::string_view symbol = fields.substr(0, first);
  if (symbol.empty() || !Symbol::fits(symbol)) {
    refuse("symbol", symbol, "does not have 1 to 15 bytes");
  }
  return {symbol,
          {parsePrice(fields.substr(first + 1, second - first - 1)),
           parseSize(fields.substr(second + 1))}};
}

std::string formatRow(const Symbol& symbol, const Quote& quote) {
  std::string fraction = std::to_string(quote.price % kPriceUnit);
  fraction.insert(0, kPriceDigits - fraction.size(), '0');
  return std::string(symbol.view()) + "," + std::to_string(quote.price / kPriceUnit) + "." +
         fraction + "," + std::to_string(quote.size);
}

// FNV-1a of the text form.
void Digest::add(const Symbol& symbol, const Quote& quote) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : formatRow(symbol, quote)) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  }
  sum_ += hash;
}

}  // namespace Quotes
