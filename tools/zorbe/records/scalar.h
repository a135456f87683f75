// SPDX-License-Identifier: MIT
//
// One element of a column: bytes in a record, and the text that stands for them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "records/shape.h"

namespace Zorbe::Tool {

/// The bytes of a record: the key in whole words, as the table's core takes it.
struct Record {
  explicit Record(const Zorbe::Table::Schema& schema)
      : key((schema.keyBytes + 7) / 8), value(schema.valueBytes) {}

  /// All bytes zero, those between the fields, too.
  void clear();

  /// The key or the value, of which the column is a part.
  const unsigned char* part(const Column& column) const;
  unsigned char* part(const Column& column);

  std::vector<uint64_t> key;
  std::vector<unsigned char> value;
};

/// Appends an element: a text as its bytes, V as hexadecimal digits, b1 as true or false, numbers
/// in decimal digits; floating-point numbers with the fewest digits that read as the same number.
void appendScalar(std::string& out, const Column& column, const Record& record, uint32_t element);

/// Stores an element in a record whose bytes are zero. Throws BadInput when the text is not what
/// the type needs, completely, or does not fit.
void storeScalar(std::string_view text, const Column& column, Record& record, uint32_t element);

/// The order of the same element of two records: negative, zero or positive. Numbers by their
/// value, texts and V by their bytes.
int compareScalars(const Column& column, const Record& a, const Record& b, uint32_t element);

/// Whether the element is a NaN or infinite.
bool isNonFinite(const Column& column, const Record& record, uint32_t element);

}  // namespace Zorbe::Tool
