// SPDX-License-Identifier: MIT
//
// All that can be told about a table from outside its processes.
#pragma once

#include <brask/platform.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "directory.h"
#include "sockets.h"

namespace Zorbe::Tool {

/// Who holds the writer lock.
struct Writer {
  std::vector<pid_t> pids;  ///< empty when the caller may not see whose it is
  std::string executable;
  std::string cmdline;
  bool stopped = false;

  /// "alive", "stopped", or "hidden" when the caller may not see it.
  const char* state() const;
};

struct Table {
  std::string name;
  std::string path;                   ///< of the root directory
  std::optional<std::string> socket;  ///< its abstract name; none when the name is too long
  Listing directory;
  TableSockets sockets;
  std::optional<Writer> writer;
  unsigned fenix = 0;      ///< 0 when there is none
  bool corrupt = false;    ///< there is a corruption marker
  std::string corruption;  ///< the marker's text
  std::string lastOwner;   ///< the note of the last writer

  /// There is at least one of a table's files, or a socket.
  bool exists() const;

  /// The bytes of storage of the table's files.
  uint64_t storage() const;
};

/// The table called `name`, whether it exists or not.
Table lookAt(Brask::Platform::DebugHandler& handler, const std::string& name);

/// What is below the base directory.
struct Survey {
  Table base;  ///< the base directory itself, which is the root of the table named ""

  /// Every directory below it, down to `deepest` levels, and the tables of which only the
  /// socket is left, by name. Symbolic links are looked at, but not gone through.
  std::vector<Table> places;

  static constexpr int deepest = 8;

  /// Those among all of them that exist.
  std::vector<const Table*> tables() const;
};

/// Reads the kernel's tables of sockets and processes once.
Survey survey(Brask::Platform::DebugHandler& handler);

}  // namespace Zorbe::Tool
