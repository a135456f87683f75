// SPDX-License-Identifier: MIT
//
// A quote in ordinary memory, its stored form, and its text form.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "table_format.h"

namespace Quotes {

struct Quote {
  std::string symbol;  // 1 to 15 bytes, none of them zero
  int64_t price = 0;   // in ten-thousandths
  uint32_t size = 0;
};

/// A process's own copy of a table.
using Copy = std::unordered_map<std::string, Quote>;

/// The stored form, checksum included. Throws Brask::RuntimeException when the symbol
/// does not fit.
Record makeRecord(const Quote& quote, uint64_t sequence);

Quote quoteOf(const Record& record);

bool checksumHolds(const Record& record);

/// Reads "symbol,price,size". Throws std::invalid_argument saying what is wrong.
Quote parseRow(const std::string& row);

/// The inverse of parseRow, without a line end.
std::string formatRow(const Quote& quote);

/// One number for a whole copy, whatever its order: equal copies, equal digests.
uint32_t digest(const Copy& copy);

}  // namespace Quotes
