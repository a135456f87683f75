// SPDX-License-Identifier: MIT
#include <zorbe/table/codec.h>
#include <zorbe/table/error.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>
#include <string_view>

#include "memory/layout.h"

namespace Zorbe::Table {

namespace {

void appendLine(std::string& text, const char* part, const Field& field) {
  text += std::string(part) + " " + field.name + " " + field.type + std::to_string(field.bytes);
  if (field.count != 0) text += "[" + std::to_string(field.count) + "]";
  text += " " + std::to_string(field.offset) + "\n";
}

uint64_t endOf(const Field& field) {
  const uint64_t count = field.count == 0 ? 1 : field.count;
  return field.offset + count * field.bytes;
}

[[noreturn]] void failFields(const std::string& table, const std::string& what) {
  throw Error(ErrorCode::usage, table, "", what);
}

// A description's lines are words between blanks.
bool isName(const std::string& name) {
  const auto isGraphic = [](unsigned char byte) { return byte > ' ' && byte != 0x7f; };
  return !name.empty() && std::all_of(name.begin(), name.end(), isGraphic);
}

void checkFields(const std::string& table, const std::vector<Field>& fields, uint32_t bytes) {
  uint64_t end = 0;
  for (const Field& field : fields) {
    if (!isName(field.name)) {
      failFields(table, "'" + field.name +
                            "' is no name for a field, or for Options::keyName: use one without "
                            "blanks");
    }
    if (field.offset < end) {
      failFields(table, "the field '" + field.name + "' is not in the struct's order");
    }
    end = endOf(field);
  }
  if (end > bytes) {
    failFields(table, "the field '" + fields.back().name + "' ends behind the struct");
  }
}

// Reads a number and the character `end` after it.
bool readNumber(const std::string& text, size_t& at, uint32_t& number) {
  const size_t begin = at;
  uint64_t value = 0;
  for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0; ++at) {
    value = value * 10 + static_cast<uint64_t>(text[at] - '0');
    if (value > kMaxValueBytes) return false;
  }
  number = static_cast<uint32_t>(value);
  return at != begin;
}

// "f8", "u4[5]"
bool readType(const std::string& text, Field& field) {
  constexpr std::string_view kTypes = "iufbSV";  // without the zero byte, where an empty text ends
  if (kTypes.find(text[0]) == std::string_view::npos) return false;
  field.type = text[0];
  field.count = 0;
  size_t at = 1;
  if (!readNumber(text, at, field.bytes) || field.bytes == 0) return false;
  if (at == text.size()) return true;
  if (text[at++] != '[' || !readNumber(text, at, field.count) || field.count == 0) return false;
  return at + 1 == text.size() && text[at] == ']';
}

bool readLine(const std::string& line, std::string& part, Field& field) {
  std::istringstream words(line);
  std::string type;
  std::string offset;
  std::string surplus;
  if (!(words >> part >> field.name >> type >> offset) || words >> surplus) return false;
  size_t at = 0;
  return readType(type, field) && readNumber(offset, at, field.offset) && at == offset.size();
}

template <class Number>
std::string printAs(const unsigned char* bytes) {
  Number number;
  std::memcpy(&number, bytes, sizeof number);
  return std::to_string(number);
}

std::string printInteger(const Field& field, const unsigned char* bytes) {
  const bool isSigned = field.type == 'i';
  switch (field.bytes) {
    case 1:
      return isSigned ? printAs<int8_t>(bytes) : printAs<uint8_t>(bytes);
    case 2:
      return isSigned ? printAs<int16_t>(bytes) : printAs<uint16_t>(bytes);
    case 4:
      return isSigned ? printAs<int32_t>(bytes) : printAs<uint32_t>(bytes);
    default:
      return isSigned ? printAs<int64_t>(bytes) : printAs<uint64_t>(bytes);
  }
}

std::string printHex(const unsigned char* bytes, size_t length) {
  std::string text = "0x";
  for (size_t i = 0; i < length; ++i) {
    char digits[3];
    static_cast<void>(std::snprintf(digits, sizeof digits, "%02x", bytes[i]));
    text += digits;
  }
  return text;
}

// Bytes that are not printable are written as \xNN.
std::string printText(const unsigned char* bytes, size_t length) {
  while (length > 0 && bytes[length - 1] == 0) --length;
  std::string text = "'";
  for (size_t i = 0; i < length; ++i) {
    if (std::isprint(bytes[i]) != 0) {
      text += static_cast<char>(bytes[i]);
    } else {
      text += "\\x" + printHex(bytes + i, 1).substr(2);
    }
  }
  return text + "'";
}

std::string printField(const Field& field, const unsigned char* key) {
  const unsigned char* bytes = key + field.offset;
  const bool isInteger = field.type == 'i' || field.type == 'u' || field.type == 'b';
  if (field.type == 'S') return printText(bytes, field.bytes);
  if (isInteger && field.count == 0 && field.bytes <= 8) return printInteger(field, bytes);
  return printHex(bytes, static_cast<size_t>(endOf(field) - field.offset));
}

bool isLength(const Field& field) {
  const size_t dot = field.name.rfind('.');
  return dot != std::string::npos && field.name.substr(dot) == ".length";
}

}  // namespace

Schema makeSchema(const std::vector<Field>& key, uint32_t keyBytes, const std::vector<Field>& value,
                  uint32_t valueBytes, const std::string& table) {
  checkFields(table, key, keyBytes);
  checkFields(table, value, valueBytes);
  Schema schema{keyBytes, valueBytes, ""};
  for (const Field& field : key) appendLine(schema.description, "key", field);
  for (const Field& field : value) appendLine(schema.description, "value", field);
  if (schema.description.size() > kDescriptionWords * 8) {
    failFields(table, "the description of the fields has " +
                          std::to_string(schema.description.size()) + " bytes; use shorter names");
  }
  return schema;
}

std::optional<Description> parseDescription(const Schema& schema) {
  Description description;
  std::istringstream lines(schema.description);
  for (std::string line; std::getline(lines, line);) {
    std::string part;
    Field field{};
    if (!readLine(line, part, field)) return std::nullopt;
    const bool isKey = part == "key";
    if (!isKey && part != "value") return std::nullopt;
    if (endOf(field) > (isKey ? schema.keyBytes : schema.valueBytes)) return std::nullopt;
    (isKey ? description.key : description.value).push_back(std::move(field));
  }
  return description;
}

// The fields of the key come first, so the texts themselves can be compared.
bool canRead(const Schema& own, const Schema& table) {
  return own.keyBytes == table.keyBytes && own.valueBytes <= table.valueBytes &&
         table.description.compare(0, own.description.size(), own.description) == 0;
}

std::vector<Gap> gapsOf(const std::vector<Field>& fields, uint32_t bytes) {
  std::vector<Gap> gaps;
  uint32_t end = 0;
  for (const Field& field : fields) {
    if (field.offset > end) gaps.emplace_back(end, field.offset - end);
    end = static_cast<uint32_t>(endOf(field));
  }
  if (bytes > end) gaps.emplace_back(end, bytes - end);
  return gaps;
}

std::string printKey(const Schema& schema, const void* key) {
  const auto* bytes = static_cast<const unsigned char*>(key);
  const std::optional<Description> description = parseDescription(schema);
  if (!description || description->key.empty()) return printHex(bytes, schema.keyBytes);
  std::string text;
  for (const Field& field : description->key) {
    if (isLength(field)) continue;
    text += (text.empty() ? "" : ",") + printField(field, bytes);
  }
  return text;
}

}  // namespace Zorbe::Table
