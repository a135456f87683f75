// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/kick.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "foundation/log.h"
#include "foundation/unique_fd.h"

namespace Zorbe {

namespace {

constexpr int kBacklog = 5;
constexpr double kReconnectSeconds = 30.0;

}  // namespace

WriterKickSm::WriterKickSm(Brask::Platform::DebugHandler& debugHandler, const RootPath& root,
                           bool localOnly)
    : Debuggable(debugHandler), rootPath(root), local(localOnly) {}

WriterKickSm::~WriterKickSm() {
  if (kickSocketCreated) deleteKickSocket();
  reconnectTimer.reset();
}

void WriterKickSm::timeout() {
  handleReaderConnectionTimeout();
}

void WriterKickSm::fdEvent(int /*fd*/) {
  handleReaderConnection();
}

void WriterKickSm::createKickSocket() {
  if (!local) {
    ZORBE_LOG(*handler, kStep, "WriterKickSm::createKickSocket() creating socket");
    kickSocket = Util::acquireWriterLock(*handler, rootPath);
  }
  kickSocketCreated = true;
  ZORBE_LOG(*handler, kRoutine,
            "WriterKickSm::createKickSocket() success " << rootPath << " local:" << local);
}

void WriterKickSm::doEnableListen() {
  if (!kickSocketCreated) {
    throw Brask::RuntimeException("WriterKickSm::doEnableListen() no socket");
  }
  if (local) return;
  ZORBE_LOG(*handler, kMilestone, "WriterKickSm::doEnableListen() enabling socket " << rootPath);
  if (::listen(kickSocket, kBacklog) != 0) {
    const int error = errno;
    ZORBE_LOG(*handler, kFailure,
              "WriterKickSm::doEnableListen() listen() failed "
                  << rootPath << " error: " << Log::reason(error));
    throw Brask::RuntimeException("WriterKickSm::doEnableListen() listen() failed ");
  }
  listenControl.reset(Brask::Platform::getFdControl(this));
  listenControl->watch(kickSocket);
  if (expectReconnects() != 0) {
    reconnectTimer.reset(Brask::Platform::getTimerControl(this));
    reconnectTimer->start(kReconnectSeconds);
  }
}

void WriterKickSm::handleReaderConnection() {
  ZORBE_LOG(*handler, kStep, "WriterKickSm::handleReaderConnection() ");
  const int listening = listenControl ? listenControl->fd() : -1;
  sockaddr_un peer;
  socklen_t length = sizeof peer;
  UniqueFd accepted(::accept(listening, reinterpret_cast<sockaddr*>(&peer), &length));
  if (accepted.get() < 0) {
    const int error = errno;
    ZORBE_LOG(*handler, kFailure,
              "WriterKickSm::handleReaderConnection() accept() sd:" << listening << " "
                                                                    << Log::reason(error));
    return;
  }
  const int fd = accepted.get();
  ZORBE_LOG(*handler, kStep, "WriterKickSm::handleReaderConnection() accepted socket:" << fd);
  auto client = std::make_unique<ReaderKickClientSm>(*handler, this, fd);
  static_cast<void>(accepted.release());  // the client closes it from here on
  readers[fd] = client.get();
  static_cast<void>(client.release());  // the map owns it from here on
  readersChanged();
}

void WriterKickSm::handleReaderConnectionTimeout() {
  ZORBE_LOG(*handler, kNotable,
            "WriterKickSm::handleReaderConnectionTimeout() timed out waiting "
            "for all previously connected readers to reconnect");
  if (reconnectTimer) reconnectTimer->cancel();
  reconnectTimer.reset();
  readersChanged();
}

[[gnu::hot]] void WriterKickSm::doKickSleepers() {
  ZORBE_LOG(*handler, kItem, "WriterKickSm::doKickSleepers() " << rootPath);
  if (sleepingReaders.empty()) return;
  ZORBE_LOG(*handler, kStep,
            "WriterKickSm::doKickSleepers() sleepingReaders: " << sleepingReaders.size());
  for (const auto& [fd, client] : sleepingReaders) client->kick();
  sleepingReaders.clear();
}

uint64_t WriterKickSm::lowestSequence() const {
  uint64_t lowest = std::numeric_limits<uint64_t>::max();
  for (const auto& [fd, client] : readers) {
    lowest = std::min(lowest, client->sequence);
    if (lowest == 0) break;
  }
  ZORBE_LOG(*handler, kItem, "WriterKickSm::lowestSequence(): " << lowest);
  return lowest;
}

void WriterKickSm::doCloseReaderConnection(int fd, ReaderKickClientSm* client) {
  ZORBE_LOG(*handler, kStep, "WriterKickSm::doCloseReaderConnection() socket:" << fd);
  readers.erase(fd);
  sleepingReaders.erase(fd);
  delete client;
  readersChanged();
}

void WriterKickSm::deleteKickSocket() {
  ZORBE_LOG_NOEXCEPT(*handler, kStep, "WriterKickSm::deleteKickSocket() called fd:" << kickSocket);
  if (kickSocket >= 0 && ::close(kickSocket) != 0) {
    const int error = errno;
    ZORBE_LOG_NOEXCEPT(*handler, kFailure,
                       "WriterKickSm::deleteKickSocket() close() failed fd:" << kickSocket << " "
                                                                             << Log::reason(error));
  }
  kickSocket = -1;
  listenControl.reset();
  for (const auto& [fd, client] : readers) delete client;
  readers.clear();
  sleepingReaders.clear();
  kickSocketCreated = false;
}

bool WriterKickSm::validateSocket() const {
  return true;
}

}  // namespace Zorbe
