// SPDX-License-Identifier: MIT
//
// Tables as rows of a list: what list and top show of each, and how they sort.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/table_header.h"
#include "output/columns.h"

namespace Zorbe::Tool {

struct Item {
  const Table* table;
  HeaderReading reading;
  std::optional<ReaderSummary> readers;  ///< none while no writer serves any
};

/// The tables of a survey, which they refer to, in the order of their names.
std::vector<Item> itemsOf(const Survey& survey, const HeaderReader& headers);

/// The state of the writer, "none" without one.
const char* writerState(const Table& table);

/// Whether `a` comes before `b` by "name", "writer", "pid", "connections", "bytes", "records",
/// "behind" or "lag": the largest number first, and items without the number last.
bool isBefore(const Item& a, const Item& b, const std::string& key);

struct ItemColumn {
  const char* title;
  bool number;
  Cell (*cell)(const Item& item);
};

enum ItemField {
  kName,
  kWriter,
  kPid,
  kExecutable,
  kConnections,
  kFenix,
  kCorrupt,
  kBytes,
  kRecords,
  kBehind,
  kLag,
  kLastOwner
};

/// All columns, as ItemField numbers them.
const std::vector<ItemColumn>& itemColumns();

}  // namespace Zorbe::Tool
