// SPDX-License-Identifier: MIT
//
// How a table is kept on the server, version 1:
//
//   <prefix>{TABLE}:records
//     hash: a key's bytes to the id of its last change and the value's bytes
//   <prefix>{TABLE}:changes
//     stream: an entry is a batch of changes, its id the batch's
//   <prefix>{TABLE}:about
//     hash: format, schema, epoch, last, size, compared, heartbeat, source, host, pid, version,
//     token
//
// The id of a batch is <epoch>-<sequence>. A publisher has a new epoch, higher than any before,
// each time that it connects; the sequence rises by one with each batch. An entry's first field is
// empty and has the id of the entry before it: a follower that has read up to there has missed
// nothing. The other fields are keys; their values are as in the hash, empty for a record that was
// erased.
//
// `last` is the id of the last batch, and changes in one step with it: an entry that is newer is
// none of a publisher's. `size` says in the same way how many records there are. While `compared`
// is another epoch than `epoch`, the records may be older than ones that were published before: the
// server was set back, and the publisher has not yet restored what the table has.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <zorbe/table/schema.h>

namespace Zorbe::Relay {

inline constexpr const char* kFormat = "1";

/// A publisher says each second that it is there; after so long without that it is silent.
inline constexpr auto kFreshHeartbeat = std::chrono::seconds(5);

/// The three keys of a table, under one hash tag: a cluster holds them on one node.
struct Keys {
  Keys(const std::string& prefix, const std::string& table);

  std::string records;
  std::string changes;
  std::string about;
};

/// The id of a batch.
struct Id {
  uint64_t epoch = 0;
  uint64_t sequence = 0;

  friend bool operator==(const Id& a, const Id& b) {
    return a.epoch == b.epoch && a.sequence == b.sequence;
  }
  friend bool operator!=(const Id& a, const Id& b) { return !(a == b); }
  friend bool operator<(const Id& a, const Id& b) {
    return a.epoch != b.epoch ? a.epoch < b.epoch : a.sequence < b.sequence;
  }
};

/// As the server writes it: <epoch>-<sequence>.
std::string print(const Id& id);
std::optional<Id> parseId(std::string_view text);

/// A record as the hash and the stream hold it.
struct Stored {
  Id id;
  std::string_view value;
};
std::string store(const Id& id, std::string_view value);
std::optional<Stored> parseStored(std::string_view text);

/// A table's schema as the field `schema` has it.
std::string print(const Table::Schema& schema);
std::optional<Table::Schema> parseSchema(std::string_view text);

/// How many records the server should return at once: some megabytes at most, and not so many that
/// it does nothing else for long.
uint64_t scanCount(const Table::Schema& schema);

}  // namespace Zorbe::Relay
