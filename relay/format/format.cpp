// SPDX-License-Identifier: MIT
#include "format/format.h"

#include <zorbe/table/codec.h>

#include <algorithm>
#include <charconv>

namespace Zorbe::Relay {

namespace {

constexpr size_t kWordBytes = 8;
constexpr size_t kIdBytes = 2 * kWordBytes;

// Most significant byte first, so that stored ids compare as their numbers do.
void append(std::string& text, uint64_t number) {
  for (size_t i = kWordBytes; i-- > 0;) text += static_cast<char>(number >> (8 * i));
}

uint64_t wordOf(std::string_view text) {
  uint64_t number = 0;
  for (size_t i = 0; i < kWordBytes; ++i)
    number = number << 8 | static_cast<unsigned char>(text[i]);
  return number;
}

// Reads a number and what has to follow it; false when either is not there.
template <class Number>
bool take(std::string_view& text, Number& number, std::string_view separator) {
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<size_t>(stop - text.data()));
  if (text.substr(0, separator.size()) != separator) return false;
  text.remove_prefix(separator.size());
  return true;
}

}  // namespace

Keys::Keys(const std::string& prefix, const std::string& table)
    : records(prefix + "{" + table + "}:records"),
      changes(prefix + "{" + table + "}:changes"),
      about(prefix + "{" + table + "}:about") {}

std::string print(const Id& id) {
  return std::to_string(id.epoch) + "-" + std::to_string(id.sequence);
}

std::optional<Id> parseId(std::string_view text) {
  Id id;
  if (!take(text, id.epoch, "-") || !take(text, id.sequence, "") || !text.empty()) {
    return std::nullopt;
  }
  return id;
}

std::string store(const Id& id, std::string_view value) {
  std::string text;
  text.reserve(kIdBytes + value.size());
  append(text, id.epoch);
  append(text, id.sequence);
  text += value;
  return text;
}

std::optional<Stored> parseStored(std::string_view text) {
  if (text.size() < kIdBytes) return std::nullopt;
  return Stored{{wordOf(text), wordOf(text.substr(kWordBytes))}, text.substr(kIdBytes)};
}

std::string print(const Table::Schema& schema) {
  return std::to_string(schema.keyBytes) + " " + std::to_string(schema.valueBytes) + "\n" +
         schema.description;
}

std::optional<Table::Schema> parseSchema(std::string_view text) {
  Table::Schema schema;
  if (!take(text, schema.keyBytes, " ") || !take(text, schema.valueBytes, "\n")) {
    return std::nullopt;
  }
  schema.description = text;
  if (!Table::parseDescription(schema)) return std::nullopt;
  return schema;
}

uint64_t scanCount(const Table::Schema& schema) {
  constexpr uint64_t kMostBytes = uint64_t{1} << 20;
  constexpr uint64_t kMostRecords = 1000;
  const uint64_t recordBytes = uint64_t{schema.keyBytes} + schema.valueBytes + kIdBytes;
  return std::clamp<uint64_t>(kMostBytes / recordBytes, 1, kMostRecords);
}

}  // namespace Zorbe::Relay
