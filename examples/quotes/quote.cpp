// SPDX-License-Identifier: MIT
#include "quote.h"

#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <charconv>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string_view>

namespace Quotes {

namespace {

constexpr int64_t kPriceUnit = 10000;
constexpr size_t kPriceDigits = 4;
constexpr size_t kLongestWhole = 12;  // keeps every price far inside 64 bits

uint16_t checksumOf(Record record) {
  record.checksum = 0;
  uint16_t words[sizeof(Record) / sizeof(uint16_t)];
  std::memcpy(words, &record, sizeof(record));
  return Zorbe::Util::ipChecksumRange(std::begin(words), std::end(words));
}

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

bool symbolFits(const std::string& symbol) {
  return !symbol.empty() && symbol.size() < kSymbolBytes && symbol.find('\0') == symbol.npos;
}

}  // namespace

Record makeRecord(const Quote& quote, uint64_t sequence) {
  if (!symbolFits(quote.symbol)) {
    throw Brask::RuntimeException("symbol '" + quote.symbol + "' does not have 1 to 15 bytes");
  }
  Record record{};
  std::memcpy(record.symbol, quote.symbol.data(), quote.symbol.size());
  record.price = quote.price;
  record.sequence = sequence;
  record.size = quote.size;
  record.checksum = checksumOf(record);
  return record;
}

Quote quoteOf(const Record& record) {
  return {std::string(record.symbol, strnlen(record.symbol, kSymbolBytes)), record.price,
          record.size};
}

bool checksumHolds(const Record& record) {
  return record.checksum == checksumOf(record);
}

Quote parseRow(const std::string& row) {
  const size_t first = row.find(',');
  const size_t second = first == row.npos ? row.npos : row.find(',', first + 1);
  if (second == row.npos || row.find(',', second + 1) != row.npos) {
    refuse("row", row, "does not have the three fields symbol,price,size");
  }
  Quote quote;
  quote.symbol = row.substr(0, first);
  if (!symbolFits(quote.symbol)) refuse("symbol", quote.symbol, "does not have 1 to 15 bytes");
  const std::string_view fields = row;
  quote.price = parsePrice(fields.substr(first + 1, second - first - 1));
  quote.size = parseSize(fields.substr(second + 1));
  return quote;
}

std::string formatRow(const Quote& quote) {
  std::string fraction = std::to_string(quote.price % kPriceUnit);
  fraction.insert(0, kPriceDigits - fraction.size(), '0');
  return quote.symbol + "," + std::to_string(quote.price / kPriceUnit) + "." + fraction + "," +
         std::to_string(quote.size);
}

uint32_t digest(const Copy& copy) {
  const std::map<std::string, Quote> ordered(copy.begin(), copy.end());
  std::string text;
  for (const auto& [symbol, quote] : ordered) text += formatRow(quote) + "\n";
  return Zorbe::Util::hash(text);
}

}  // namespace Quotes
