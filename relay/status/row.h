// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <optional>
#include <string>
#include <vector>

#include "host/table_header.h"
#include "output/columns.h"
#include "output/json.h"
#include "status/survey.h"

namespace Zorbe::Relay {

/// A table of the server, and the table of this host that is its copy or its source.
struct Row {
  ServedTable served;
  std::optional<Tool::TableHeader> here;  // none: this host has no such table
  bool isWrittenHere = false;             // by a process that is there

  /// "live", "silent", or "format N" of a publisher of another version.
  std::string publisher() const;
  /// "live" or "lost", "unknown" while the publisher is silent.
  std::string source() const;
  /// This host's table is a copy of another host's.
  bool isMirror() const;
};

/// Looks each table up below the base directory: under its own name, or under `as` when that is
/// not empty.
std::vector<Row> rowsOf(const std::vector<ServedTable>& tables, const std::string& as,
                        Brask::Platform::DebugHandler& handler);

Tool::Json toJson(const Row& row);

struct RowColumn {
  const char* title;
  bool isNumber;
  Tool::Cell (*cell)(const Row& row);
};

/// What is shown of each, as people read it.
const std::vector<RowColumn>& rowColumns();

/// Those that a narrow terminal does not show, the first to be left out first.
const std::vector<std::size_t>& expendableColumns();

}  // namespace Zorbe::Relay
