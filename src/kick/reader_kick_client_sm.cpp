// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/kick.h>

#include <cerrno>

#include "foundation/drain.h"
#include "foundation/log.h"

namespace Zorbe {

namespace {

// The beginning of each message about a reader's reports.
struct ReaderData {
  int fd;
};

std::ostream& operator<<(std::ostream& out, ReaderData data) {
  return out << "ReaderKickClientSm::handleReaderData() socket:" << data.fd;
}

enum class Drained { kReports, kNothing, kBroken };

// Reads the pending reports, at most kRecordsPerEvent; the last one is in `report`. A record that
// is too long arrives as its first 8 bytes: the socket drops the rest.
Drained drainReports(Brask::Platform::DebugHandler* handler, int fd, uint64_t& report) {
  unsigned numSeqs = 0;
  ssize_t received;
  while ((received = ::recv(fd, &report, sizeof report, 0)) == sizeof report) {
    if (++numSeqs == kRecordsPerEvent) return Drained::kReports;
  }
  const int error = errno;
  if (received == 0) return Drained::kBroken;
  if (received > 0) {
    ZORBE_LOG(*handler, kFailure,
              ReaderData{fd} << " recv() bad length " << received << ", disconnecting reader");
    return Drained::kBroken;
  }
  if (error != EAGAIN) {
    ZORBE_LOG(*handler, kFailure, ReaderData{fd} << " recv() error: " << Log::reason(error));
    return Drained::kBroken;
  }
  if (numSeqs > 0) return Drained::kReports;
  ZORBE_LOG(*handler, kNotable,
            ReaderData{fd} << " numSeqs:" << numSeqs << ", ignoring spurious invocation");
  return Drained::kNothing;
}

}  // namespace

ReaderKickClientSm::ReaderKickClientSm(Brask::Platform::DebugHandler& debugHandler,
                                       WriterKickSm* listener, int fd)
    : Debuggable(debugHandler), owner(listener), fdControl(Brask::Platform::getFdControl(this)) {
  fdControl->watch(fd);
}

ReaderKickClientSm::~ReaderKickClientSm() {
  ZORBE_LOG_NOEXCEPT(*handler, kStep, "ReaderKickClientSm::~ReaderKickClientSm()");
  if (!fdControl) return;
  const int fd = fdControl->fd();
  ZORBE_LOG_NOEXCEPT(*handler, kStep, "ReaderKickClientSm::~ReaderKickClientSm() socket:" << fd);
  if (fd >= 0 && ::close(fd) != 0) {
    const int error = errno;
    ZORBE_LOG_NOEXCEPT(*handler, kFailure,
                       "ReaderKickClientSm::~ReaderKickClientSm() close() failed fd:"
                           << fd << " " << Log::reason(error));
  }
  fdControl.reset();
}

[[gnu::hot]] void ReaderKickClientSm::fdEvent(int /*fd*/) {
  handleReaderData();
}

// Closing the connection destroys this object: no member is used afterwards.
[[gnu::hot]] void ReaderKickClientSm::handleReaderData() {
  const int fd = fdControl->fd();
  ZORBE_LOG(*handler, kStep, ReaderData{fd});
  uint64_t report = 0;
  const Drained drained = drainReports(handler, fd, report);
  if (drained == Drained::kNothing) return;
  if (drained == Drained::kBroken) return owner->doCloseReaderConnection(fd, this);

  const uint64_t published = owner->writerSequence;
  if (report < sequence) {
    ZORBE_LOG(*handler, kFailure,
              ReaderData{fd} << " bad reader sequence:" << report
                             << " previous sequence:" << sequence << ", disconnecting reader");
    return owner->doCloseReaderConnection(fd, this);
  }
  sequence = report;
  ZORBE_LOG(*handler, kStep,
            ReaderData{fd} << " reader sequence:" << report << " writer sequence:" << published);
  if (report > published) {
    ZORBE_LOG(
        *handler, kFailure,
        ReaderData{fd} << " bad reader sequence:" << report << " writer sequence:" << published);
    return owner->doCloseReaderConnection(fd, this);
  }

  if (report == published) {
    ZORBE_LOG(*handler, kStep, ReaderData{fd} << " adding sleeping reader");
    owner->sleepingReaders[fd] = this;
    if (acknowledged) return;
  } else {
    ZORBE_LOG(*handler, kStep, ReaderData{fd} << " kicking");
  }
  kick();
  if (acknowledged) return;
  ZORBE_LOG(*handler, kStep, ReaderData{fd} << " acknowledged reader sequence");
  acknowledged = true;
}

[[gnu::hot]] void ReaderKickClientSm::kick() {
  const int fd = fdControl->fd();
  ZORBE_LOG(*handler, kStep, "ReaderKickClientSm::kick() socket:" << fd);
  if (::send(fd, "#", 1, 0) >= 1) {
    ++owner->kickCount;
    return;
  }
  const int error = errno;
  ZORBE_LOG(*handler, kFailure,
            "ReaderKickClientSm::kick() socket:" << fd << " send() " << Log::reason(error));
}

}  // namespace Zorbe
