// SPDX-License-Identifier: MIT
//
// The records of a table as columns: from the description in the table, or from the options of a
// command.
#pragma once

#include <zorbe/table/codec.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Zorbe::Tool {

/// A field as a user sees it. A text and the number that is its length are one.
struct Column {
  std::string name;
  bool isKey;      ///< of the key, else of the value
  char type;       ///< NumPy's letter: S, V, b, i, u or f
  uint32_t bytes;  ///< of one element
  uint32_t count;  ///< of elements; 0 when it is no array
  uint32_t offset;
  uint32_t lengthBytes = 0;  ///< of the length that a text has; 0: it ends with its zero bytes
  uint32_t lengthAt = 0;     ///< the offset of that length

  uint32_t elements() const { return count == 0 ? 1 : count; }
};

/// The columns of a table, those of the key first.
struct Shape {
  Zorbe::Table::Schema schema;
  std::vector<Column> columns;
};

/// The columns that a description names. Bytes without a description, and types that this command
/// does not know, are columns of type V. A field of the value with a name that the key has, too,
/// gets the prefix "value.".
Shape shapeOf(const Zorbe::Table::Schema& schema);

/// The columns that the options of a command name, each as NAME:TYPE, aligned as C++ aligns them;
/// a text lies there as Zorbe::Table::Text does. Throws BadInput.
Shape shapeFrom(const std::vector<std::string>& key, const std::vector<std::string>& value);

/// Whether rows of the one are rows of the other: names, types and order are the same.
bool hasSameColumns(const Shape& a, const Shape& b);

/// The options that name these columns: "--key symbol:S15 --field price:i8". Printable.
std::string optionsOf(const Shape& shape);

/// A name that an object of JSON input uses for something else.
bool isReserved(const std::string& name);

}  // namespace Zorbe::Tool
