// SPDX-License-Identifier: MIT
#include "core/reader_connection.h"

#include <poll.h>

#include "core/writer_link.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Table {

namespace {

// Whether the writer has ended the connection. The loop reports that later; until then a report
// would be logged as a failure of send(2).
bool hasEnded(int fd) {
  pollfd state{fd, 0, 0};
  return ::poll(&state, 1, 0) > 0 && (state.revents & POLLHUP) != 0;
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
  if (hasEnded(fdControl->fd())) return;
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
