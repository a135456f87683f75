// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/kick.h>

#include <cerrno>

#include "foundation/drain.h"
#include "foundation/log.h"
#include "foundation/unique_fd.h"
#include "sockets/writer_connection.h"

namespace Zorbe {

namespace {

constexpr const char* kConnecting = "ReaderKickSm::doConnect()";
constexpr std::size_t kKicksAtOnce = 32;

// Reads the pending kicks, at most kRecordsPerEvent records, and counts them. Returns why it
// ended: 0 when the writer has closed the connection, else an errno, which is EAGAIN when there
// are no more or the rest is left to the next event.
int drainKicks(int fd, std::size_t& kicks) {
  char buffer[kKicksAtOnce];
  unsigned records = 0;
  ssize_t received;
  while ((received = ::recv(fd, buffer, sizeof buffer, 0)) > 0) {
    kicks += static_cast<std::size_t>(received);
    if (++records == kRecordsPerEvent) return EAGAIN;
  }
  return received == 0 ? 0 : errno;
}

}  // namespace

ReaderKickSm::ReaderKickSm(Brask::Platform::DebugHandler& debugHandler, const RootPath& root,
                           Reader::Counters& readerCounters)
    : Debuggable(debugHandler),
      rootPath(root),
      timerControl(Brask::Platform::getTimerControl(this)),
      fdControl(Brask::Platform::getFdControl(this)),
      counters(readerCounters) {
  ZORBE_LOG(*handler, kStep, "ReaderKickSm::ReaderKickSm() " << rootPath);
  initialized = true;
}

ReaderKickSm::~ReaderKickSm() {
  ZORBE_LOG_NOEXCEPT(*handler, kStep, "ReaderKickSm::~ReaderKickSm()");
  if (fdControl && fdControl->fd() >= 0) {
    closeWriterConnection(*handler, "ReaderKickSm::~ReaderKickSm()", fdControl->fd(), rootPath);
  }
  timerControl.reset();
  fdControl.reset();
}

void ReaderKickSm::timeout() {
  ZORBE_LOG(*handler, kStep, "ReaderKickSm::timeout() " << fdControl->fd());
  doConquer();
}

[[gnu::hot]] void ReaderKickSm::fdEvent(int /*fd*/) {
  ZORBE_LOG(*handler, kStep, "ReaderKickSm::fdEvent() " << fdControl->fd());
  handleKickFromWriter();
}

void ReaderKickSm::doConnect() {
  ZORBE_LOG(*handler, kStep, "ReaderKickSm::doConnect()");
  if (!initialized || connected) return;
  UniqueFd fd(openWriterConnection(*handler, kConnecting, rootPath, " "));
  if (const int error = connectToWriter(*handler, fd.get(), rootPath)) {
    ZORBE_LOG(*handler, kFailure,
              kConnecting << " connect() socket:" << fd.get() << " " << rootPath
                          << " failed: " << Log::reason(error));
    closeWriterConnection(*handler, kConnecting, fd.release(), rootPath);
    return;
  }
  fdControl->watch(fd.get());
  static_cast<void>(fd.release());  // doCloseWriterConnection or the destructor closes it
  connected = true;
  writerConnectionChanged();
  ZORBE_LOG(*handler, kStep,
            kConnecting << " socket:" << fdControl->fd() << " connected to " << rootPath);
}

void ReaderKickSm::doCloseWriterConnection(bool detaching) {
  const int fd = fdControl->fd();
  ZORBE_LOG(
      *handler, kNotable,
      "ReaderKickSm::doCloseWriterConnection() closing: " << fd << " detaching: " << detaching);
  if (::close(fd) != 0) {
    const int error = errno;
    ZORBE_LOG_NOEXCEPT(*handler, kFailure,
                       "ReaderKickSm::doCloseWriterConnection() error closing: "
                           << fd << " " << Log::reason(error));
  }
  fdControl->unwatch();
  connected = false;
  acknowledged = false;
  if (!detaching) writerConnectionChanged();
}

[[gnu::hot]] void ReaderKickSm::handleKickFromWriter() {
  ZORBE_LOG(*handler, kItem,
            "ReaderKickSm::handleKickFromWriter() initialized:"
                << initialized << " enabled:" << enabled << " ack:" << acknowledged);
  if (!initialized || !enabled) return;
  std::size_t kicks = 0;
  const int ended = drainKicks(fdControl->fd(), kicks);
  if (ended != EAGAIN) {
    if (ended != 0) {
      ZORBE_LOG(*handler, kFailure,
                "ReaderKickSm::handleKickFromWriter() recv() error: " << Log::reason(ended));
    }
    doCloseWriterConnection(false);
    return;
  }
  ZORBE_LOG(*handler, kStep, "ReaderKickSm::handleKickFromWriter() read " << kicks << " kicks");
  if (kicks == 0) return;
  ++counters.conquerKicks;
  if (!acknowledged) {
    acknowledged = true;
    writerAcknowledged();
  } else {
    doConquer();
  }
}

[[gnu::hot]] void ReaderKickSm::doConquer() {
  ZORBE_LOG(*handler, kItem,
            "ReaderKickSm::doConquer() initialized:" << initialized << " enabled:" << enabled
                                                     << " ack:" << acknowledged);
  if (!initialized || !enabled || !acknowledged) return;
  if (notificationsDisabled) {
    ZORBE_LOG(*handler, kNotable, "ReaderKickSm::doConquer() notifications temporarily disabled");
    return;
  }
  try {
    const uint64_t sequence = readerSequence();
    if (notificationsDisabled || conquerAgain) {
      timerControl->start(0.0);
      return;
    }
    sendSequence(sequence);
    timerControl->cancel();
  } catch (const CorruptionDetectedException& corruption) {
    ZORBE_LOG(*handler, kFailure, "ReaderKickSm::doConquer exception caught: " << corruption.msg());
  }
}

[[gnu::hot]] void ReaderKickSm::sendSequence(const uint64_t& sequence) {
  ZORBE_LOG(*handler, kStep, "ReaderKickSm::sendSequence() at sequence " << sequence);
  if (!initialized || !connected) return;
  if (sequence < sentSequence) {
    throw Brask::RuntimeException(ZORBE_TEXT("ReaderKickSm::sendSequence() sending sequence:"
                                             << sequence
                                             << " previously sent sequence:" << sentSequence));
  }
  sentSequence = sequence;
  const int fd = fdControl->fd();
  const ssize_t sent = ::send(fd, &sequence, sizeof sequence, 0);
  const int error = errno;
  if (sent == sizeof sequence) return;
  if (sent < 0) {
    ZORBE_LOG(
        *handler, kFailure,
        "ReaderKickSm::sendSequence() send() socket:" << fd << " failed: " << Log::reason(error));
  } else {
    ZORBE_LOG(*handler, kFailure, "ReaderKickSm::sendSequence() only sent " << sent << " bytes!!!");
  }
}

void ReaderKickSm::notifying(bool on) {
  ZORBE_LOG(*handler, kStep, "ReaderKickSm::notifying() notifying: " << on);
  if (!on) {
    notificationsDisabled = true;
    timerControl->cancel();
  } else if (notificationsDisabled) {
    notificationsDisabled = false;
    timerControl->start(0.0);
  }
}

}  // namespace Zorbe
