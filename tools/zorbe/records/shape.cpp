// SPDX-License-Identifier: MIT
#include "records/shape.h"

#include <algorithm>
#include <optional>

#include "memory/layout.h"
#include "output/text.h"
#include "records/bad_input.h"

namespace Zorbe::Tool {

using Zorbe::Table::Field;
using Zorbe::Table::Schema;

namespace {

constexpr const char* kLength = ".length";
constexpr uint32_t kLongestText = 65535;
constexpr uint32_t kLongestShortText = 255;  // whose length has one byte

bool isKnown(char type, uint32_t bytes) {
  switch (type) {
    case 'S':
    case 'V':
      return true;
    case 'b':
      return bytes == 1;
    case 'f':
      return bytes == 4 || bytes == 8;
    default:
      return bytes == 1 || bytes == 2 || bytes == 4 || bytes == 8;
  }
}

bool isLengthOf(const Field& field, const Field& text) {
  return text.type == 'S' && text.count == 0 && field.name == text.name + kLength &&
         field.type == 'u' && field.count == 0 && field.bytes <= 2;
}

void appendColumns(std::vector<Column>& columns, const std::vector<Field>& fields, bool isKey,
                   uint32_t bytes) {
  if (fields.empty() && bytes != 0) {
    columns.push_back({isKey ? "key" : "value", isKey, 'V', bytes, 0, 0});
  }
  for (size_t i = 0; i < fields.size(); ++i) {
    const Field& field = fields[i];
    const char type = isKnown(field.type, field.bytes) ? field.type : 'V';
    Column column{field.name, isKey, type, field.bytes, field.count, field.offset};
    if (i + 1 < fields.size() && isLengthOf(fields[i + 1], field)) {
      ++i;
      column.lengthBytes = fields[i].bytes;
      column.lengthAt = fields[i].offset;
    }
    columns.push_back(column);
  }
}

void distinguishFromKey(std::vector<Column>& columns) {
  for (Column& column : columns) {
    const auto isSame = [&](const Column& other) {
      return other.isKey && other.name == column.name;
    };
    if (!column.isKey && std::any_of(columns.begin(), columns.end(), isSame)) {
      column.name.insert(0, "value.");
    }
  }
}

// A description's lines are words between blanks.
bool isWord(const std::string& text) {
  const auto isGraphic = [](unsigned char byte) { return byte > ' ' && byte != 0x7f; };
  return !text.empty() && std::all_of(text.begin(), text.end(), isGraphic);
}

void checkName(const std::string& name) {
  if (!isWord(name)) {
    throw BadInput(quoted(name) + " is no name of a field: it is empty, or has a blank");
  }
  if (isReserved(name)) {
    throw BadInput("a field cannot be named '" + name + "', which has a meaning in JSON");
  }
  const std::string end = kLength;
  if (name.size() >= end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0) {
    throw BadInput(quoted(name) + ": a name ending in '.length' belongs to a text");
  }
}

// NAME:TYPE. What a type is, the library knows.
Field fieldFrom(const std::string& text) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos) throw BadInput(quoted(text) + " is not of the form NAME:TYPE");
  const std::string name = text.substr(0, colon);
  const std::string type = text.substr(colon + 1);
  checkName(name);
  const Schema one{0, Zorbe::Table::kMaxValueBytes, "value " + name + " " + type + " 0\n"};
  const auto parsed = Zorbe::Table::parseDescription(one);
  const bool isOne = isWord(type) && parsed && parsed->value.size() == 1;
  const bool isType = isOne && isKnown(parsed->value[0].type, parsed->value[0].bytes);
  if (!isType) {
    throw BadInput(quoted(type) +
                   " is no type: S<n> or V<n>, b1, i1, i2, i4, i8, u1, u2, u4, u8, " +
                   "f4 or f8, and [n] after it for an array, of at most 1 MiB");
  }
  const Field& field = parsed->value[0];
  if (field.type == 'S' && (field.count != 0 || field.bytes > kLongestText)) {
    throw BadInput(quoted(type) +
                   ": a text has at most 65535 bytes, and there are no arrays of it");
  }
  return field;
}

uint32_t alignmentOf(const Field& field) {
  if (field.type == 'S') return field.bytes > kLongestShortText ? 2 : 1;
  return field.type == 'V' ? 1 : field.bytes;
}

uint64_t alignedTo(uint32_t alignment, uint64_t offset) {
  return (offset + alignment - 1) / alignment * alignment;
}

struct Layout {
  std::vector<Field> fields;
  uint64_t end = 0;
  uint32_t alignment = 1;

  void add(Field field) {
    const uint32_t own = alignmentOf(field);
    alignment = std::max(alignment, own);
    field.offset = static_cast<uint32_t>(alignedTo(own, end));
    end = field.offset + uint64_t{field.bytes} * std::max<uint32_t>(field.count, 1);
    fields.push_back(field);
    if (field.type == 'S') addLength(field.name, own);
  }

  uint32_t bytes(const char* what, uint32_t limit) const {
    const uint64_t all = alignedTo(alignment, end);
    if (all > limit) {
      throw BadInput(std::string(what) + " has " + std::to_string(all) + " bytes; at most " +
                     std::to_string(limit) + " are possible");
    }
    return static_cast<uint32_t>(all);
  }

 private:
  void addLength(const std::string& name, uint32_t lengthBytes) {
    end = alignedTo(lengthBytes, end);
    fields.push_back({name + kLength, 'u', lengthBytes, 0, static_cast<uint32_t>(end)});
    end += lengthBytes;
  }
};

Layout layOut(const std::vector<std::string>& columns, std::vector<std::string>& names) {
  Layout layout;
  for (const std::string& column : columns) {
    const Field field = fieldFrom(column);
    if (std::find(names.begin(), names.end(), field.name) != names.end()) {
      throw BadInput("two fields are named '" + printable(field.name) + "'");
    }
    names.push_back(field.name);
    layout.add(field);
    if (layout.end > Zorbe::Table::kMaxValueBytes) break;  // sizes stay within 32 bits
  }
  return layout;
}

}  // namespace

Shape shapeOf(const Schema& schema) {
  const auto parsed = Zorbe::Table::parseDescription(schema);
  const Zorbe::Table::Description fields = parsed.value_or(Zorbe::Table::Description{});
  Shape shape{schema, {}};
  appendColumns(shape.columns, fields.key, true, schema.keyBytes);
  appendColumns(shape.columns, fields.value, false, schema.valueBytes);
  distinguishFromKey(shape.columns);
  return shape;
}

Shape shapeFrom(const std::vector<std::string>& key, const std::vector<std::string>& value) {
  std::vector<std::string> names;
  const Layout keys = layOut(key, names);
  const Layout values = layOut(value, names);
  for (const Field& field : keys.fields) {
    if (field.type != 'f') continue;
    throw BadInput("the key '" + printable(field.name) +
                   "' is a floating-point number, which has several representations of one value");
  }
  const uint32_t keyBytes = keys.bytes("the key", Zorbe::Table::kMaxKeyBytes);
  const uint32_t valueBytes = values.bytes("the record", Zorbe::Table::kMaxValueBytes);
  return shapeOf(Zorbe::Table::makeSchema(keys.fields, keyBytes, values.fields, valueBytes));
}

bool hasSameColumns(const Shape& a, const Shape& b) {
  const auto isSame = [](const Column& one, const Column& other) {
    return one.name == other.name && one.isKey == other.isKey && one.type == other.type &&
           one.bytes == other.bytes && one.count == other.count;
  };
  return std::equal(a.columns.begin(), a.columns.end(), b.columns.begin(), b.columns.end(), isSame);
}

std::string optionsOf(const Shape& shape) {
  std::string options;
  for (const Column& column : shape.columns) {
    options += options.empty() ? "" : " ";
    options += std::string(column.isKey ? "--key " : "--field ") + printable(column.name) + ":";
    options += column.type + std::to_string(column.bytes);
    if (column.count != 0) options += "[" + std::to_string(column.count) + "]";
  }
  return options;
}

bool isReserved(const std::string& name) {
  return name == "erased" || name == "reset" || name == "complete";
}

}  // namespace Zorbe::Tool
