// SPDX-License-Identifier: MIT
//
// Who reads a table: what its writer has stored in the header, joined with the processes at the
// other ends of the connections. Either one may be missing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/table_header.h"

namespace Zorbe::Tool {

enum class ReaderState {
  kBehind,     ///< was woken, and has not reported since
  kAsleep,     ///< has everything that was published
  kWatcher,    ///< has never reported
  kConnected,  ///< accepted; the writer says no more of it
  kPending,    ///< waits to be accepted
};

/// One connection.
struct ReaderRow {
  ReaderState state = ReaderState::kConnected;
  std::optional<pid_t> pid;  ///< who connected, or else the first that holds the connection
  std::vector<pid_t> pids;   ///< all that hold it; empty when the caller may not see them
  std::optional<uid_t> uid;
  std::string executable;
  std::string cmdline;
  std::optional<bool> stopped;       ///< none when the process cannot be seen
  std::optional<uint64_t> reported;  ///< the last sequence
  std::optional<uint64_t> lagRecords;
  std::optional<double> sinceSeconds;  ///< since state and report are what they are
};

struct ReaderList {
  std::vector<ReaderRow> rows;  ///< those that are furthest behind first
  std::string problem;          ///< why the kernel does not show the connections
};

/// "behind", "asleep", "watcher", "connected" or "pending".
const char* word(ReaderState state);

ReaderList findReaders(Brask::Platform::DebugHandler& handler, const Table& table,
                       const std::optional<TableHeader>& header);

}  // namespace Zorbe::Tool
