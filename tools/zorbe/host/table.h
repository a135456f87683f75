// SPDX-License-Identifier: MIT
//
// What can be seen of a table from outside its processes.
#pragma once

#include <brask/platform.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/directory.h"
#include "host/sockets.h"

namespace Zorbe::Tool {

/// The process that holds the writer lock.
struct Writer {
  std::vector<pid_t> pids;  ///< empty when the caller may not see the holder
  std::string executable;
  std::string cmdline;
  bool stopped = false;

  /// "alive", "stopped", or "hidden" when the caller may not see it.
  const char* state() const;
};

/// A writer lock that is held.
struct Lock {
  std::string socket;  ///< its abstract name
  TableSockets sockets;
  Writer writer;
};

struct Table {
  std::string name;
  std::string path;                   ///< of the root directory
  std::optional<std::string> socket;  ///< abstract name of the lock: the one that is held, or the
                                      ///< one of `path`; none when the name is too long
  Listing directory;
  TableSockets sockets;
  std::optional<Writer> writer;
  std::vector<Lock> otherWriters;  ///< of the same directory, under other spellings of its path
  unsigned fenix = 0;              ///< 0 when there is none
  bool corrupt = false;            ///< there is a corruption marker
  std::string corruption;          ///< the marker's text
  std::string lastOwner;           ///< content of the file last-owner

  /// At least one file of a table exists, or a socket.
  bool exists() const;

  /// The same, or an empty directory.
  bool isThere() const { return directory.present || exists(); }

  /// The bytes of storage of the table's files.
  uint64_t storage() const;
};

/// The table called `name`, whether it exists or not. Throws std::system_error when the base
/// directory, or one on the way from it, may not be searched or is none. Its writer is found by the
/// directory as well as by the name of the lock.
Table inspect(Brask::Platform::DebugHandler& handler, const std::string& name);

/// The tables below the base directory.
struct Survey {
  Table base;  ///< the base directory itself, which is the root of the table named ""

  /// Every directory below it, down to `kMaxDepth` levels, and the tables of which only the
  /// socket is left, sorted by name. Symbolic links are examined, but not followed further.
  std::vector<Table> directories;

  static constexpr int kMaxDepth = 8;

  /// The tables that exist, the base directory included if it is one.
  std::vector<const Table*> tables() const;
};

/// What survey() does about a base directory that cannot be read. None is no error: it has no
/// tables.
enum class BadBase {
  kThrow,   ///< std::system_error with the path and the reason
  kReport,  ///< the error is in the survey's `base`
};

/// Reads the kernel's lists of sockets and processes once, however many tables exist.
Survey survey(Brask::Platform::DebugHandler& handler, BadBase badBase = BadBase::kThrow);

}  // namespace Zorbe::Tool
