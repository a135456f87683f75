// SPDX-License-Identifier: MIT
#include "core/reader_connection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <zorbe/util.h>

#include <cerrno>

#include "foundation/log.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Table {

namespace {

// Returns 0 or the reason why there is no connection. A full queue is EAGAIN.
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

ReaderConnection::ReaderConnection(Brask::Platform::DebugHandler& debugHandler,
                                   const RootPath& root, Reader::Counters& readerCounters,
                                   Owner& owner)
    : ReaderKickSm(debugHandler, root, readerCounters), owner_(owner) {}

bool ReaderConnection::tryConnect() {
  if (connected) return true;
  UniqueFd fd(Util::socket(*handler, AF_UNIX, SOCK_SEQPACKET, 0));
  const int error = fd.get() < 0 ? errno : connectWithoutWaiting(*handler, fd.get(), rootPath);
  if (error != 0) {
    ZORBE_LOG(*handler, step,
              "ReaderConnection::tryConnect() " << rootPath << ": " << Log::reason(error));
    return false;
  }
  fdControl->watch(fd.get());
  static_cast<void>(fd.release());  // closed by the base class from here on
  connected = true;
  writerConnectionChanged();
  return true;
}

void ReaderConnection::report(uint64_t position) {
  if (!connected || (hasReported_ && position == sentSequence)) return;
  hasReported_ = true;
  sendSequence(position);
}

void ReaderConnection::writerConnectionChanged() {
  enabled = connected;
  hasReported_ = false;
  owner_.connectionChanged();
}

// Every batch of kicks is treated like the first one, for which the base class neither runs a
// pass nor reports: the program reads when it wants to.
void ReaderConnection::writerAcknowledged() {
  acknowledged = false;
  owner_.kicked();
}

}  // namespace Zorbe::Table
