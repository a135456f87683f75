// SPDX-License-Identifier: MIT
//
// What the kernel tells about the sockets of all tables, read at once.
#pragma once

#include <brask/platform.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Tool {

/// The sockets that go by the abstract name of one table.
struct TableSockets {
  std::vector<ino_t> bound;  ///< the writer lock: one, or none
  bool listening = false;    ///< the writer lets readers in
  unsigned connections = 0;  ///< accepted by the writer
  unsigned pending = 0;      ///< waiting to be accepted
};

/// By abstract name, those of sequenced packets only. Sees the network namespace that this
/// process is in. Throws std::system_error when /proc/net/unix cannot be read.
std::map<std::string, TableSockets> readSockets();

/// The same for the content of a /proc/net/unix.
std::map<std::string, TableSockets> parseSockets(const std::string& content);

/// The abstract name of the table whose root directory is `path`; none when its last component
/// is too long for one.
std::optional<std::string> abstractName(Brask::Platform::DebugHandler& handler,
                                        const std::string& path);

/// Moves the process into the network namespace of all tables' sockets, so that what it reads
/// below /proc/net is theirs. Where that is not allowed it stays where it is, as the library's
/// sockets do; returns why, or nothing.
std::string enterNamespaceOfTables();

}  // namespace Zorbe::Tool
