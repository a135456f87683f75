// SPDX-License-Identifier: MIT
//
// Who is at the other end of the connections to the writers, as the kernel's socket diagnostics
// know it: for tables of any kind.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Tool {

/// A connection to a writer.
struct Connection {
  ino_t socket = 0;          ///< the reader's; 0 when it has closed it
  std::optional<uid_t> uid;  ///< the socket's user, where the kernel says so
  bool pending = false;      ///< waits to be accepted
};

/// By the abstract name of the writer's socket.
using Connections = std::map<std::string, std::vector<Connection>>;

/// The connections to sequenced-packet sockets in the network namespace of this process. Takes no
/// rights, and never blocks for long. Throws std::system_error when the kernel has no such
/// diagnostics.
Connections readConnections();

}  // namespace Zorbe::Tool
