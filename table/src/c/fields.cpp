// SPDX-License-Identifier: MIT
#include <zorbe/table/error.h>

#include <algorithm>

#include "c/shape.h"
#include "memory/layout.h"

namespace Zorbe::Table {

namespace {

[[noreturn]] void failField(const std::string& table, const std::string& what) {
  throw Error(ErrorCode::usage, table, "", what);
}

bool isElement(char type, uint32_t bytes) {
  switch (type) {
    case 'i':
    case 'u':
      return bytes == 1 || bytes == 2 || bytes == 4 || bytes == 8;
    case 'f':
      return bytes == 4 || bytes == 8;
    case 'b':
      return bytes == 1;
    case 'S':
    case 'V':
      return bytes != 0;
    default:
      return false;
  }
}

Field checkedField(const std::string& table, const zorbe_field& field) {
  if (field.name == nullptr) failField(table, "a field has no name");
  const std::string name = "the field '" + std::string(field.name) + "' ";
  if (field.part != ZORBE_KEY && field.part != ZORBE_VALUE) {
    failField(table, name + "is neither of the key nor of the value");
  }
  if (!isElement(field.type, field.bytes)) {
    failField(table, name + "is of type '" + field.type + std::to_string(field.bytes) +
                         "', which is none of zorbe_field");
  }
  if (field.type == 'f' && field.part == ZORBE_KEY) {
    failField(table, name +
                         "of the key is a floating-point number, of which equal ones may have "
                         "other bytes: use an integer");
  }
  return {field.name, field.type, field.bytes, field.count, field.offset};
}

// The size of key or value: that of the program's struct, or without one up to the last field.
uint32_t sizeOf(const std::string& table, const char* part, const std::vector<Field>& fields,
                uint32_t bytes, uint32_t limit) {
  uint64_t end = bytes;
  for (const Field& field : fields) {
    const uint64_t count = std::max<uint32_t>(field.count, 1);
    if (bytes == 0) end = std::max<uint64_t>(end, field.offset + count * field.bytes);
  }
  if (end <= limit) return static_cast<uint32_t>(end);
  failField(table, std::string("a ") + part + " has " + std::to_string(end) +
                       " bytes; it may have " + std::to_string(limit) + " at most");
}

}  // namespace

Schema schemaOf(const std::string& table, const zorbe_field* fields, size_t count,
                uint32_t keyBytes, uint32_t valueBytes) {
  std::vector<Field> key;
  std::vector<Field> value;
  for (size_t i = 0; i < count; ++i) {
    Field field = checkedField(table, fields[i]);
    (fields[i].part == ZORBE_KEY ? key : value).push_back(std::move(field));
  }
  if (key.empty()) failField(table, "no field is one of the key");
  const uint32_t keySize = sizeOf(table, "key", key, keyBytes, kMaxKeyBytes);
  const uint32_t valueSize = sizeOf(table, "value", value, valueBytes, kMaxValueBytes);
  Schema schema = makeSchema(key, keySize, value, valueSize, table);
  // Only the byte that aligns the length of a long text is the library's.
  const Shape shape(schema);
  if (!gapsOf(key, keySize).empty() && shape.textBytes() == 0) {
    failField(table, "the key has bytes that belong to no field: equal keys need equal bytes");
  }
  return schema;
}

}  // namespace Zorbe::Table
