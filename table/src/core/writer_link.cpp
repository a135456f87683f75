// SPDX-License-Identifier: MIT
#include "core/writer_link.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <cerrno>
#include <cstdint>

#include "foundation/log.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Table {

namespace {

// More than the queue of pending connections holds.
constexpr int kMostPending = 64;

// Returns 0, or the errno of the call that failed.
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

void endConnection(int fd) noexcept {
  static_cast<void>(::shutdown(fd, SHUT_RDWR));  // nothing more arrives
  char report[sizeof(uint64_t)];
  while (::recv(fd, report, sizeof report, MSG_DONTWAIT) > 0) {
  }
}

void endPendingConnections(int listening) noexcept {
  for (int each = 0; each < kMostPending; ++each) {
    const UniqueFd fd(::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
    if (fd.get() < 0) return;
    endConnection(fd.get());
  }
}

void releaseInChild(int fd) noexcept {
  if (fd < 0) return;
  const UniqueFd nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (nothing.get() < 0 || ::dup3(nothing.get(), fd, O_CLOEXEC) < 0) {
    static_cast<void>(::close(fd));  // a number that is reused is better than the parent's lock
  }
}

}  // namespace Zorbe::Table
