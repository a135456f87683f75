// SPDX-License-Identifier: MIT
//
// What a table's header says, as the commands show it.
#pragma once

#include "host/table_header.h"
#include "output/columns.h"
#include "output/json.h"

namespace Zorbe::Tool {

/// Null for a table that is not of the ready-made kind.
Json toJson(const Table& table, const HeaderReading& reading);

/// "local", "mirrored" or "mirrored, connection lost".
const char* word(Zorbe::Table::Origin origin);

/// Adds rows of two cells: what it is, and what the header says.
void addFacts(Columns& columns, const Table& table, const HeaderReading& reading);

/// The fields of the records, one row each; no rows for another table.
Columns fieldsOf(const HeaderReading& reading);

}  // namespace Zorbe::Tool
