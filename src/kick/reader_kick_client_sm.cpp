// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/kick.h>

#include <cerrno>

#include "foundation/drain.h"
#include "foundation/log.h"

namespace Zorbe {

namespace {

#define LOG_READER_DATA(level, words) \
  ZORBE_LOG(*handler, level, "ReaderKickClientSm::handleReaderData() socket:" << fd << words)

enum class Drained { reports, nothing, broken };

// Reads the pending reports, as many as one event may; the last one stays in `report`. A
// record that is too long arrives as its first 8 bytes: the socket drops the rest.
Drained drainReports(Brask::Platform::DebugHandler* handler, int fd, uint64_t& report) {
  unsigned numSeqs = 0;
  ssize_t received;
  while ((received = ::recv(fd, &report, sizeof report, 0)) == sizeof report) {
    if (++numSeqs == kRecordsPerEvent) return Drained::reports;
  }
  const int error = errno;
  if (received == 0) return Drained::broken;
  if (received > 0) {
    LOG_READER_DATA(failure, " recv() bad length " << received << ", disconnecting reader");
    return Drained::broken;
  }
  if (error != EAGAIN) {
    LOG_READER_DATA(failure, " recv() error: " << Log::reason(error));
    return Drained::broken;
  }
  if (numSeqs > 0) return Drained::reports;
  LOG_READER_DATA(notable, " numSeqs:" << numSeqs << ", ignoring spurious invocation");
  return Drained::nothing;
}

}  // namespace

ReaderKickClientSm::ReaderKickClientSm(Brask::Platform::DebugHandler& debugHandler,
                                       WriterKickSm* listener, int fd)
    : Debuggable(debugHandler), owner(listener), fdControl(Brask::Platform::getFdControl(this)) {
  fdControl->watch(fd);
}

ReaderKickClientSm::~ReaderKickClientSm() {
  ZORBE_LOG_OR_LOSE(*handler, step, "ReaderKickClientSm::~ReaderKickClientSm()");
  if (!fdControl) return;
  const int fd = fdControl->fd();
  ZORBE_LOG_OR_LOSE(*handler, step, "ReaderKickClientSm::~ReaderKickClientSm() socket:" << fd);
  if (fd >= 0 && ::close(fd) != 0) {
    const int error = errno;
    ZORBE_LOG_OR_LOSE(*handler, failure,
                      "ReaderKickClientSm::~ReaderKickClientSm() close() failed fd:"
                          << fd << " " << Log::reason(error));
  }
  fdControl.reset();
}

[[gnu::hot]] void ReaderKickClientSm::fdEvent(int /*fd*/) {
  handleReaderData();
}

// Closing the connection destroys this object: nothing of it is touched afterwards.
[[gnu::hot]] void ReaderKickClientSm::handleReaderData() {
  const int fd = fdControl->fd();
  LOG_READER_DATA(step, "");
  uint64_t report = 0;
  const Drained drained = drainReports(handler, fd, report);
  if (drained == Drained::nothing) return;
  if (drained == Drained::broken) return owner->doCloseReaderConnection(fd, this);

  const uint64_t published = owner->writerSequence;
  if (report < sequence) {
    LOG_READER_DATA(failure, " bad reader sequence:" << report << " previous sequence:" << sequence
                                                     << ", disconnecting reader");
    return owner->doCloseReaderConnection(fd, this);
  }
  sequence = report;
  LOG_READER_DATA(step, " reader sequence:" << report << " writer sequence:" << published);
  if (report > published) {
    LOG_READER_DATA(failure, " bad reader sequence:" << report << " writer sequence:" << published);
    return owner->doCloseReaderConnection(fd, this);
  }

  if (report == published) {
    LOG_READER_DATA(step, " adding sleeping reader");
    owner->sleepingReaders[fd] = this;
    if (acknowledged) return;
  } else {
    LOG_READER_DATA(step, " kicking");
  }
  kick();
  if (acknowledged) return;
  LOG_READER_DATA(step, " acknowledged reader sequence");
  acknowledged = true;
}

[[gnu::hot]] void ReaderKickClientSm::kick() {
  const int fd = fdControl->fd();
  ZORBE_LOG(*handler, step, "ReaderKickClientSm::kick() socket:" << fd);
  if (::send(fd, "#", 1, 0) >= 1) {
    ++owner->kickCount;
    return;
  }
  const int error = errno;
  ZORBE_LOG(*handler, failure,
            "ReaderKickClientSm::kick() socket:" << fd << " send() " << Log::reason(error));
}

}  // namespace Zorbe
