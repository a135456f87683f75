// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/core.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <variant>

#include "records/csv.h"
#include "records/lines.h"
#include "records/row.h"

namespace Zorbe::Tool {

enum class Format { kCsv, kJson };

/// Stores the rows of its input in a table. A row that is not right is reported on standard error,
/// with its line, and left out.
class Importer {
 public:
  /// Shape and writer outlive this object. The writer's schema is the shape's.
  Importer(const Shape& shape, Zorbe::Table::WriterCore& writer, Format format);

  /// Stores the rows that are complete now.
  void add(std::string_view input);

  /// There is no more input.
  void end();

  /// Rows that were left out.
  uint64_t badRows() const { return badRows_; }

 private:
  void storeRows(CsvReader& rows);
  void storeRows(LineReader& lines);
  template <class Store>
  void attempt(uint64_t line, Store store);
  void storeRow(const CsvRow& row);
  void storeLine(const Line& line);
  void apply(Zorbe::Table::Kind kind);
  void beginTransfer();
  void endTransfer();
  void report(uint64_t line, const std::string& what);

  const Shape& shape_;
  Zorbe::Table::WriterCore& writer_;
  Record record_;
  std::variant<CsvReader, LineReader> input_;
  bool isFirst_ = true;
  uint64_t badRows_ = 0;
  bool isTransfer_ = false;                  // between reset and complete
  std::unordered_set<std::string> missing_;  // keys that the transfer has not named yet
};

}  // namespace Zorbe::Tool
