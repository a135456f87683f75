// SPDX-License-Identifier: MIT
#include "support/raw_peer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "support/child_process.h"

namespace Zorbe::Test {

RawPeer::RawPeer(Brask::Platform::DebugHandler& handler, const RootPath& root)
    : fd_(Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0)) {
  sockaddr_un address = {};
  const socklen_t length = Util::createSockaddr(handler, &address, root.path);
  if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), length) == 0) return;
  const int error = errno;
  EXPECT_EQ(::close(fd_), 0);
  throw std::system_error(error, std::generic_category(), "connect");
}

RawPeer::RawPeer(RawPeer&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

RawPeer::~RawPeer() {
  if (fd_ < 0) return;
  EXPECT_EQ(::close(fd_), 0);
}

bool RawPeer::send(const std::string& bytes) {
  return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
}

bool RawPeer::report(uint64_t sequence) {
  return send(reportOf(sequence));
}

std::string RawPeer::reportOf(uint64_t sequence) {
  std::string bytes(sizeof sequence, '\0');
  std::memcpy(bytes.data(), &sequence, sizeof sequence);
  return bytes;
}

RawPeer::Heard RawPeer::hear() {
  pollfd waiting = {fd_, POLLIN, 0};
  const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(patience);
  if (::poll(&waiting, 1, static_cast<int>(limit.count())) <= 0) return Heard::nothing;
  char byte;
  return ::recv(fd_, &byte, 1, 0) > 0 ? Heard::kick : Heard::end;
}

bool RawPeer::isKicked() {
  return hear() == Heard::kick;
}

bool RawPeer::isCutOff() {
  Heard heard;
  do {
    heard = hear();
  } while (heard == Heard::kick);
  return heard == Heard::end;
}

}  // namespace Zorbe::Test
