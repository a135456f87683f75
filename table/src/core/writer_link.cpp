// SPDX-License-Identifier: MIT
#include "core/writer_link.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <cerrno>

#include "foundation/log.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Table {

namespace {

// Returns 0 or the reason why there is no connection.
int connectWithoutWaiting(Brask::Platform::DebugHandler& handler, int fd, const RootPath& root) {
  sockaddr_un address{};
  const socklen_t length = Util::createSockaddr(handler, &address, root.path);
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) return errno;
  if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) return errno;
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  return ::connect(fd, generic, length) == 0 ? 0 : errno;
}

}  // namespace

int connectToWriter(Brask::Platform::DebugHandler& handler, const RootPath& root) {
  UniqueFd fd(Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0));
  const int error = fd.get() < 0 ? errno : connectWithoutWaiting(handler, fd.get(), root);
  if (error == 0) return fd.release();
  ZORBE_LOG(handler, kStep, "Table::connectToWriter() " << root << ": " << Log::reason(error));
  return -1;
}

void releaseInChild(int fd) noexcept {
  if (fd < 0) return;
  const UniqueFd nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (nothing.get() < 0 || ::dup3(nothing.get(), fd, O_CLOEXEC) < 0) {
    static_cast<void>(::close(fd));  // better a free number than the parent's lock
  }
}

}  // namespace Zorbe::Table
