// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <memory>
#include <string>

#include "memory/table_reader.h"

namespace Zorbe::Tool {

/// What is at a table's place.
struct Source {
  std::string path;                                   ///< of its directory
  std::unique_ptr<Zorbe::Table::TableReader> reader;  ///< null: there are no records to read
  std::string problem;                                ///< why there are none; printable
};

/// Opens a table for reading, without a connection to its writer. Throws std::runtime_error for a
/// table that is not of the ready-made kind, and the table's own exceptions for one that cannot
/// be read.
Source openSource(Brask::Platform::DebugHandler& handler, const std::string& name);

/// Throws std::runtime_error when the directory holds a table that is not of the ready-made kind.
void refuseOtherKind(Brask::Platform::DebugHandler& handler, const std::string& name);

}  // namespace Zorbe::Tool
