// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/unlock.h>

#include <cerrno>

#include "foundation/drain.h"
#include "foundation/log.h"
#include "foundation/unique_fd.h"
#include "sockets/writer_connection.h"

namespace Zorbe {

namespace {

constexpr const char* kConnecting = "WriterUnlockSm::doConnect()";
constexpr double kDepartureReportSeconds = 0.1;

bool isNoWriter(int error) {
  return error == ECONNREFUSED || error == ETIMEDOUT;
}

}  // namespace

WriterUnlockSm::WriterUnlockSm(Brask::Platform::DebugHandler& debugHandler,
                               const std::string& label, const RootPath& root)
    : Debuggable(debugHandler),
      instanceName(label),
      rootPath(root),
      timerControl(Brask::Platform::getTimerControl(this)),
      fdControl(Brask::Platform::getFdControl(this)) {
  ZORBE_LOG(*handler, kStep,
            "WriterUnlockSm::WriterUnlockSm() for instanceName=" << instanceName
                                                                 << ", rootPath=" << rootPath);
}

WriterUnlockSm::~WriterUnlockSm() {
  ZORBE_LOG_NOEXCEPT(*handler, kStep,
                     "WriterUnlockSm::~WriterUnlockSm() for instanceName=" << instanceName);
  if (fdControl && fdControl->fd() >= 0) {
    closeWriterConnection(*handler, "WriterUnlockSm::~WriterUnlockSm()", fdControl->fd(), rootPath);
  }
  timerControl.reset();
  fdControl.reset();
}

void WriterUnlockSm::timeout() {
  notifyUnlocked();
}

void WriterUnlockSm::fdEvent(int /*fd*/) {
  ZORBE_LOG(
      *handler, kStep,
      "WriterUnlockSm::fdEvent() for instanceName=" << instanceName << ", fd=" << fdControl->fd());
  handleFdEvent();
}

void WriterUnlockSm::doConnect() {
  ZORBE_LOG(*handler, kStep, kConnecting << " for instanceName=" << instanceName);
  UniqueFd fd(openWriterConnection(*handler, kConnecting, rootPath, ""));
  const int error = connectToWriter(*handler, fd.get(), rootPath);
  if (isNoWriter(error)) {
    ZORBE_LOG(*handler, kStep,
              kConnecting << " connect() socket:" << fd.get() << " " << rootPath
                          << " couldn't connect: " << Log::reason(error)
                          << ". Retrying doConnect() later");
    timerControl->start(kDepartureReportSeconds);
    closeWriterConnection(*handler, kConnecting, fd.release(), rootPath);
    return;
  }
  if (error == EINTR) {  // handleFdEvent reads the outcome: see connect(2)
    ZORBE_LOG(*handler, kStep,
              kConnecting << " connect() socket:" << fd.get() << " " << rootPath
                          << " couldn't connect: " << Log::reason(error)
                          << ". Connection will be established asynchronously");
  } else if (error != 0) {
    const std::string text = ZORBE_TEXT(kConnecting << " connect() failed " << fd.get() << " "
                                                    << rootPath << " " << Log::reason(error));
    ZORBE_LOG(*handler, kFailure, text);
    closeWriterConnection(*handler, kConnecting, fd.release(), rootPath);
    throw ConnectionException(text);
  }
  fdControl->watch(fd.get());
  static_cast<void>(fd.release());  // closed by doDisconnect or the destructor from here on
  timerControl->cancel();
  ZORBE_LOG(*handler, kStep,
            kConnecting << " socket:" << fdControl->fd() << " connected to " << rootPath);
}

void WriterUnlockSm::handleFdEvent() {
  ZORBE_LOG(*handler, kStep, "WriterUnlockSm::handleFdEvent() for instanceName=" << instanceName);
  unsigned records = 0;
  ssize_t received;
  int error;
  do {
    char discarded[32];
    received = ::recv(fdControl->fd(), discarded, sizeof discarded, 0);
    error = errno;
    ZORBE_LOG(*handler, kItem,
              "WriterUnlockSm::handleFdEvent() for instanceName="
                  << instanceName << ", recv() returned " << received);
  } while (received > 0 && ++records < kRecordsPerEvent);
  if (received > 0 || (received < 0 && error == EAGAIN)) return;
  if (received == 0) {
    ZORBE_LOG(*handler, kStep,
              "WriterUnlockSm::handleFdEvent() for instanceName="
                  << instanceName << " notifying because we've disconnected gracefully");
  } else if (error == ECONNRESET) {
    ZORBE_LOG(*handler, kStep,
              "WriterUnlockSm::handleFdEvent() for instanceName="
                  << instanceName << " notifying because we've disconnected with ECONNRESET");
  } else {
    ZORBE_LOG(*handler, kStep,
              "WriterUnlockSm::handleFdEvent() for instanceName="
                  << instanceName << " recv() error: " << Log::reason(error) << ", errno=" << error
                  << ": assuming disconnected");
  }
  notifyUnlocked();
}

void WriterUnlockSm::notifyUnlocked() {
  ZORBE_LOG(*handler, kStep,
            "WriterUnlockSm::notifyUnlocked() for instanceName=" << instanceName
                                                                 << " turning off notifications");
  doDisconnect();
  writerUnlocked();
}

void WriterUnlockSm::doDisconnect() {
  const int fd = fdControl->fd();
  ZORBE_LOG(
      *handler, kMilestone,
      "WriterUnlockSm::doDisconnect() closing for instanceName=" << instanceName << ", fd=" << fd);
  if (fd < 0) return;
  if (::close(fd) != 0) {
    const int error = errno;
    ZORBE_LOG_NOEXCEPT(
        *handler, kNotable,
        "WriterUnlockSm::doDisconnect() error closing: " << fd << " " << Log::reason(error));
  }
  fdControl->unwatch();
}

}  // namespace Zorbe
