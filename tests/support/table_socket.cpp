// SPDX-License-Identifier: MIT
#include "support/table_socket.h"

#include "support/recording_handler.h"

#include <zorbe/util.h>

#include <cstddef>

namespace Zorbe::Test {
TableSocket::TableSocket(const std::string& rootPath) {
  RecordingHandler quiet;
  quiet.setMaxLevel(RecordingHandler::kNothing);
  length = Util::createSockaddr(quiet, &address, rootPath);
}

std::string TableSocket::abstractName() const {
  constexpr size_t kLead = offsetof(sockaddr_un, sun_path) + 1;
  return {address.sun_path + 1, length - kLead};
}

}  // namespace Zorbe::Test
