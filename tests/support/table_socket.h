// SPDX-License-Identifier: MIT
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace Zorbe::Test {

/// The address of a table's abstract socket, as the tests see it: bytes.
struct TableSocket {
  explicit TableSocket(const std::string& rootPath);

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
  std::string abstractName() const;

  sockaddr_un address = {};
  socklen_t length = 0;
};

}  // namespace Zorbe::Test
