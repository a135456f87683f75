// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Table {

/// How a table is made, and how it is opened. Options of one side only are marked. Contradictory
/// options are Error (usage).
struct Options {
  /// The directory in which the tables' directories are. Empty: from the environment, see
  /// Zorbe::RootPath.
  std::string root;

  /// What the key is called in the table's description, unless it is a struct. Without blanks;
  /// the same for the writer and all readers.
  std::string keyName = "key";

  size_t records = 1024;   ///< writer: room from the start, in records
  size_t maxRecords = 0;   ///< writer: the most records; 0: as many as memory allows
  size_t logEntries = 0;   ///< writer: changes that a follower may be behind; 0: by `records`
  mode_t mode = 0644;      ///< writer: of new files, regardless of the umask
  double waitForLock = 0;  ///< writer: seconds to wait for another writer to end

  /// Writer: replaces a table of another description or version by an empty one; otherwise that
  /// throws Error (schema, version).
  bool replaceOtherSchema = false;

  /// Reader: refuses files of other users than this one.
  std::optional<uid_t> owner;

  bool populate = false;   ///< maps all pages at once (MAP_POPULATE)
  bool hugePages = false;  ///< asks for huge pages (MADV_HUGEPAGE); a kernel without ignores it

  /// Where messages go; outlives the object, and stays the program's. Called by the threads that
  /// call the object, and by the thread of a Writer. Null: level 0 to standard error.
  Brask::Platform::DebugHandler* log = nullptr;
};

/// The state of a reader.
enum class State {
  waiting,    ///< there is no table yet: get() finds nothing
  connected,  ///< the writer is there, and followed
  orphaned,   ///< there is no writer: the records stay as they are
  refused,    ///< the table cannot be read by this program: see next()
};

/// What next() delivers.
enum class Kind {
  put,       ///< a record, with its newest value
  erased,    ///< the record of a key was erased
  reset,     ///< every record follows again: before the first one, after an overrun, and for a
             ///< new table in the old one's place
  complete,  ///< every record has been delivered since `reset`: drop what was not among them
};

/// Where the records come from.
enum class Origin {
  local,         ///< this host's writer
  mirrored,      ///< another host's, which is connected
  mirroredLost,  ///< another host's, to which the connection is lost
};

/// The state of a connection, as the writer sees it.
enum class PeerState {
  watcher,  ///< has never reported: it only waits for the writer's end, or only calls get()
  asleep,   ///< has everything that was published
  behind,   ///< was woken, and has not reported since
};

/// One connection to the writer.
struct Peer {
  uint32_t pid = 0;                      ///< as the writer's PID namespace counts
  uint32_t uid = 0;                      ///< as the writer's user namespace counts
  uint64_t reported = 0;                 ///< the last sequence that it reported
  PeerState state = PeerState::watcher;  ///< when the writer looked last
  int64_t since = 0;  ///< of the state and the report; the writer's CLOCK_MONOTONIC, nanoseconds
};

/// Who reads a table, as its writer saw it last: at most ten times a second.
struct Status {
  int64_t now = 0;           ///< when that was; the writer's CLOCK_MONOTONIC, nanoseconds
  uint64_t connections = 0;  ///< all of them; `peers` may hold fewer
  std::vector<Peer> peers;   ///< 250 at most
  uint64_t kicks = 0;        ///< that this writer has sent to its readers
  uint64_t takeovers = 0;    ///< how often a writer continued the table of one before
};

/// What a reader knows about its table.
struct Info {
  uint64_t incarnation = 0;       ///< another one after the table was replaced; 0: no table
  uint64_t published = 0;         ///< the sequence of the last change that was published
  uint64_t position = 0;          ///< up to which next() has delivered
  uint64_t lag = 0;               ///< published - position: changes; a key may have several of them
  uint64_t records = 0;           ///< slots in the file; not all of them hold a record
  int64_t publishedAt = 0;        ///< CLOCK_REALTIME of the last publish, nanoseconds; 0: none yet
  Origin origin = Origin::local;  ///< see Writer's setOrigin
  int64_t originSince = 0;        ///< CLOCK_REALTIME since when, nanoseconds; 0: from the start
};

}  // namespace Zorbe::Table
