// SPDX-License-Identifier: MIT
#include "sockets/writer_connection.h"

#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>

#include "foundation/log.h"
#include "sockets/sockaddr.h"

namespace Zorbe {

namespace {

using Brask::Platform::DebugHandler;

[[noreturn]] void failAt(const char* where, const char* call, const char* tail) {
  throw Brask::RuntimeException(std::string(where) + " " + call + " failed" + tail);
}

}  // namespace

int openWriterConnection(DebugHandler& handler, const char* where, const RootPath& rootPath,
                         const char* tail) {
  const int fd = Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0);
  if (fd < 0) {
    const int error = errno;
    ZORBE_LOG(handler, kFailure,
              where << " socket() failed " << rootPath << " " << Log::reason(error));
    failAt(where, "socket()", tail);
  }
  const int on = 1;
  if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
    const int error = errno;
    ZORBE_LOG(
        handler, kFailure,
        where << " setsockopt() failed " << fd << " " << rootPath << " " << Log::reason(error));
    failAt(where, "setsockopt()", tail);
  }
  return fd;
}

int connectToWriter(DebugHandler& handler, int fd, const RootPath& rootPath) {
  const TableAddress address(handler, rootPath.path);
  return ::connect(fd, address.get(), address.length()) == 0 ? 0 : errno;
}

void closeWriterConnection(DebugHandler& handler, const char* where, int fd,
                           const RootPath& rootPath) {
  if (::close(fd) == 0) return;
  const int error = errno;
  ZORBE_LOG_NOEXCEPT(
      handler, kFailure,
      where << " close() socket:" << fd << " " << rootPath << " failed: " << Log::reason(error));
}

}  // namespace Zorbe
