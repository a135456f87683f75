// SPDX-License-Identifier: MIT
//
// The sockets of all tables, read from the kernel's list at once.
#pragma once

#include <brask/platform.h>
#include <sys/types.h>
#include <sys/un.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Tool {

/// The sockets with the abstract name of one table.
struct TableSockets {
  std::vector<ino_t> bound;  ///< the writer lock: one, or none
  bool listening = false;    ///< the writer accepts readers
  unsigned connections = 0;  ///< accepted by the writer
  unsigned pending = 0;      ///< waiting to be accepted

  /// The queue takes no more: a connect(2) that may wait waits for the writer. Writers listen with
  /// a backlog of 5, and the kernel queues one more.
  bool isFull() const { return pending > 5; }
};

using SocketsByName = std::map<std::string, TableSockets>;

/// Sequenced-packet sockets of the network namespace of this process, by abstract name. Throws
/// std::system_error when /proc/net/unix cannot be read.
SocketsByName readSockets();

/// The same for the content of a /proc/net/unix.
SocketsByName parseSockets(const std::string& content);

/// The abstract name of the table whose root directory is `rootPath`; none when its last component
/// is too long for one.
std::optional<std::string> socketName(const std::string& rootPath);

/// Ready for bind(2) and connect(2).
struct SocketAddress {
  sockaddr_un bytes;
  unsigned length;
};

/// The address of the table whose root directory is `rootPath`. Throws as Util::createSockaddr
/// does.
SocketAddress addressOfPath(Brask::Platform::DebugHandler& handler, const std::string& rootPath);

/// The address with an abstract name that readSockets() has found.
SocketAddress addressOfName(const std::string& abstractName);

/// "zorbe_", a last component, "_" and eight digits: the component of the path; none when it is not
/// the name of a table's socket.
std::optional<std::string> lastComponent(const std::string& socket);

/// Moves the process into the network namespace of all tables' sockets, so that
/// /proc/net shows them. Where that is not allowed the process stays in its own, as the
/// library's sockets do; returns the reason, or an empty text.
std::string enterNamespaceOfTables();

}  // namespace Zorbe::Tool
