// SPDX-License-Identifier: MIT
#include "core/reader_connection.h"

#include <poll.h>

#include "core/writer_link.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Table {

namespace {

// Not when the writer has ended the connection, which the loop reports later, and not when it has
// not read many earlier reports: send(2) would fail, and the report would be lost.
bool hasRoom(int fd) {
  pollfd state{fd, POLLOUT, 0};
  return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLOUT | POLLHUP)) == POLLOUT;
}

}  // namespace

ReaderConnection::ReaderConnection(Brask::Platform::DebugHandler& debugHandler,
                                   const RootPath& root, Reader::Counters& readerCounters,
                                   Owner& owner)
    : ReaderKickSm(debugHandler, root, readerCounters), owner_(owner) {}

bool ReaderConnection::tryConnect() {
  if (connected) return true;
  UniqueFd fd(connectToWriter(*handler, rootPath));
  if (fd.get() < 0) return false;
  fdControl->watch(fd.get());
  static_cast<void>(fd.release());  // closed by the base class from here on
  connected = true;
  writerConnectionChanged();
  return true;
}

void ReaderConnection::report(uint64_t position) {
  if (!connected || (hasReported_ && position == sentSequence)) return;
  if (!hasRoom(fdControl->fd())) return;
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
