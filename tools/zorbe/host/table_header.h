// SPDX-License-Identifier: MIT
//
// The header of a ready-made table's file `slots`: what it holds, and who reads it. The file is
// read and never mapped: a file that is cut short meanwhile is no SIGBUS, and the holes of a sparse
// one take no memory.
#pragma once

#include <zorbe/table/options.h>
#include <zorbe/table/schema.h>

#include <cstdint>
#include <optional>
#include <string>

#include "host/table.h"
#include "memory/identity.h"

namespace Zorbe::Tool {

/// A copy, made while the writer may have stored.
struct TableHeader {
  uint64_t incarnation = 0;
  bool ofThisBoot = true;  ///< false: the next writer replaces the table
  bool retired = false;    ///< the file was replaced
  Zorbe::Table::Schema schema;
  uint64_t slots = 0;
  uint64_t maxRecords = 0;          ///< 0: without a limit
  std::optional<uint64_t> records;  ///< live ones; none when there is too much to count
  uint64_t published = 0;           ///< the sequence of the last published change
  int64_t publishedAt = 0;          ///< CLOCK_REALTIME, nanoseconds; 0: never
  Zorbe::Table::Origin origin = Zorbe::Table::Origin::local;
  int64_t originSince = 0;       ///< CLOCK_REALTIME, nanoseconds; 0: from the start
  uint64_t takeovers = 0;        ///< writers that continued the table of one before
  Zorbe::Table::Status readers;  ///< as the last writer saw them; see isServed()
};

/// The connections of a table, summed up. Who never reported is a watcher, and not slow.
struct ReaderSummary {
  uint64_t asleep = 0;
  uint64_t behind = 0;
  uint64_t watchers = 0;
  uint64_t lagRecords = 0;  ///< of the reader that is furthest behind: changes
  double lagSeconds = 0;    ///< of the one that has been behind for longest
};

/// The header of a table, or why there is none. Neither: it is not of the ready-made kind.
struct HeaderReading {
  std::optional<TableHeader> header;
  std::string problem;
};

/// Changes that a reader has not reported; 0 for one that is not behind.
uint64_t lagOf(const TableHeader& header, const Zorbe::Table::Peer& peer);

/// Seconds since the connection's state and report are what they are.
double secondsIn(const TableHeader& header, const Zorbe::Table::Peer& peer);

ReaderSummary summarize(const TableHeader& header);

/// True when the readers in the header are those of a writer that is there. Those of an earlier
/// one stay in the file until the next one clears them.
bool isServed(const Table& table);

class HeaderReader {
 public:
  /// Counts the records of tables of at most `countedBytes`. Throws Zorbe::Table::Error when the
  /// boot id of the kernel cannot be read.
  explicit HeaderReader(uint64_t countedBytes = kCountedBytes);

  /// Never blocks, and throws nothing for what the file holds.
  HeaderReading read(const Table& table) const;

  static constexpr uint64_t kCountedBytes = uint64_t{1} << 30;

 private:
  Zorbe::Table::Identity boot_;
  uint64_t countedBytes_;
};

}  // namespace Zorbe::Tool
