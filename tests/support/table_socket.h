// SPDX-License-Identifier: MIT
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace Zorbe::Test {

/// The abstract socket of a table, as the tests see it: bytes, and whoever listens there.
struct TableSocket {
  explicit TableSocket(const std::string& rootPath);

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
  std::string abstractName() const;

  /// A new socket bound to the name, listening when `backlog` is not negative; -1 when the
  /// name is taken.
  int bind(int backlog) const;

  /// A new socket connected to the name, or -1 with `errno` set.
  int connect() const;

  sockaddr_un address = {};
  socklen_t length = 0;
};

}  // namespace Zorbe::Test
