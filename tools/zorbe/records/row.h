// SPDX-License-Identifier: MIT
//
// Records as rows of CSV, as JSON objects, and as text for people; and back.
#pragma once

#include <zorbe/table/options.h>

#include <string>
#include <string_view>
#include <vector>

#include "records/scalar.h"
#include "records/shape.h"

namespace Zorbe::Tool {

/// The names of the fields of a row of CSV: of an array, each element has one, as in "sizes[0]".
std::vector<std::string> csvNames(const Shape& shape);

/// Appends a line of CSV with these fields.
void appendCsvLine(std::string& out, const std::vector<std::string>& fields);

/// The elements of a record, one for each name, as appendScalar() writes them.
std::vector<std::string> elementsOf(const Shape& shape, const Record& record);

/// Fills a record from the fields of a row. Throws BadInput.
void readCsvRow(const Shape& shape, const std::vector<std::string>& fields, Record& record);

/// Fills the key alone from as many texts as it has elements. Throws BadInput.
void readKey(const Shape& shape, const std::vector<std::string>& texts, Record& record);

/// Appends a line with the object that stands for a change: for `put` all columns, for `erased`
/// those of the key and "erased":true, {"reset":true} and {"complete":true}.
void appendJsonLine(std::string& out, const Shape& shape, Zorbe::Table::Kind kind,
                    const Record& record);

/// Reads such a line: fills the record for `put`, its key for `erased`. Throws BadInput.
Zorbe::Table::Kind readJsonLine(const Shape& shape, std::string_view line, Record& record);

/// Appends a line for people: what has changed, and the columns as name=value.
void appendTextLine(std::string& out, const Shape& shape, Zorbe::Table::Kind kind,
                    const Record& record);

/// Whether the key of `a` comes before that of `b`: numbers by their value, others by their bytes.
bool isKeyLess(const Shape& shape, const Record& a, const Record& b);

}  // namespace Zorbe::Tool
