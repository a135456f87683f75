// SPDX-License-Identifier: MIT
#pragma once

#include <sys/un.h>
#include <zorbe/util.h>

#include <cstddef>
#include <iomanip>
#include <string>

#include "foundation/log.h"

namespace Zorbe {

/// Bytes of the longest abstract name that an address holds after the leading zero byte.
constexpr std::size_t kLongestAbstractName =
    sizeof(sockaddr_un) - offsetof(sockaddr_un, sun_path) - 2;

/// The last component of the path of a root directory.
inline std::string baseName(const std::string& rootPath) {
  return rootPath.substr(rootPath.rfind('/') + 1);
}

/// The name of a table's socket, as /proc/net/unix shows it after an '@'. The one place that makes
/// it from `rootPath`, the path of the root directory; an address is made from the name, never the
/// other way round.
inline std::string abstractName(const std::string& rootPath) {
  return ZORBE_TEXT("zorbe_" << baseName(rootPath) << '_' << std::hex << std::setw(8)
                             << std::setfill('0') << Util::hash(rootPath));
}

}  // namespace Zorbe
