// SPDX-License-Identifier: MIT
//
// The record of the table, and its text form.
#pragma once

#include <zorbe/table/fields.h>

#include <cstdint>
#include <map>
#include <string>

namespace Quotes {

using Symbol = Zorbe::Table::Text<15>;

struct Quote {
  int64_t price;  // in ten-thousandths
  uint32_t size;
};
ZORBE_FIELDS(Quote, price, size);

/// A process's own copy of a table.
using Copy = std::map<Symbol, Quote>;

struct Row {
  Symbol symbol;
  Quote quote;
};

/// Reads "symbol,price,size". Throws std::invalid_argument saying what is wrong.
Row parseRow(const std::string& row);

/// The inverse of parseRow, without a line end.
std::string formatRow(const Symbol& symbol, const Quote& quote);

/// One number for many records, in any order: equal records, equal digests.
class Digest {
 public:
  void add(const Symbol& symbol, const Quote& quote);
  std::string text() const { return std::to_string(sum_); }

 private:
  uint64_t sum_ = 0;
};

}  // namespace Quotes
