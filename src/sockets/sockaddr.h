// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace Zorbe {

/// The abstract socket address of one table, ready for bind(2) and connect(2).
class TableAddress {
 public:
  /// `name` is the path of the root directory. Throws as Util::createSockaddr does.
  TableAddress(Brask::Platform::DebugHandler& handler, const std::string& name);

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  socklen_t length() const;

  /// The name after the leading zero byte.
  const std::string& abstractName() const { return abstractName_; }

 private:
  std::string abstractName_;
  sockaddr_un address_;  // of this name
};

}  // namespace Zorbe
