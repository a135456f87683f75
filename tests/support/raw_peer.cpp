// SPDX-License-Identifier: MIT
#include "support/raw_peer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "support/table_socket.h"
#include "support/timeout.h"

namespace Zorbe::Test {
namespace {

constexpr size_t kLongestMessage = 64;

// The socket when the call has succeeded; else none, with the errno of the call.
Descriptor when(bool succeeded, Descriptor socket) {
  if (succeeded) return socket;
  const int error = errno;
  socket.close();
  errno = error;
  return socket;
}

}  // namespace

std::string bytesOf(uint64_t sequence) {
  std::string bytes(sizeof sequence, '\0');
  std::memcpy(bytes.data(), &sequence, sizeof sequence);
  return bytes;
}

Descriptor RawPeer::newSocket(Blocking blocking) {
  const Fault::Bypass bypass;
  const int flags = SOCK_CLOEXEC | (blocking == Blocking::kNo ? SOCK_NONBLOCK : 0);
  Descriptor made(::socket(AF_UNIX, SOCK_SEQPACKET | flags, 0));
  EXPECT_TRUE(made.isOpen()) << std::strerror(errno);
  return made;
}

RawPeer RawPeer::bind(const std::string& rootPath) {
  const Fault::Bypass bypass;
  const TableSocket table(rootPath);
  Descriptor socket = newSocket();
  const bool bound = ::bind(socket.get(), table.get(), table.length) == 0;
  return RawPeer(when(bound, std::move(socket)));
}

RawPeer RawPeer::listen(const std::string& rootPath, int backlog) {
  RawPeer peer = bind(rootPath);
  if (!peer.isOpen()) return peer;
  const Fault::Bypass bypass;
  EXPECT_EQ(::listen(peer.fd(), backlog), 0) << std::strerror(errno);
  return peer;
}

RawPeer RawPeer::connect(const std::string& rootPath, Descriptor socket) {
  const Fault::Bypass bypass;
  const TableSocket table(rootPath);
  const bool connected = ::connect(socket.get(), table.get(), table.length) == 0;
  return RawPeer(when(connected, std::move(socket)));
}

std::vector<RawPeer> RawPeer::fillQueue(const std::string& rootPath) {
  std::vector<RawPeer> peers;
  for (RawPeer peer = connect(rootPath); peer.isOpen(); peer = connect(rootPath)) {
    peers.push_back(std::move(peer));
  }
  EXPECT_EQ(errno, EAGAIN);
  return peers;
}

RawPeer RawPeer::accept() const {
  const Fault::Bypass bypass;
  return RawPeer(Descriptor(::accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)));
}

void RawPeer::send(const std::string& message) const {
  const Fault::Bypass bypass;
  const ssize_t sent = ::send(fd(), message.data(), message.size(), MSG_NOSIGNAL);
  EXPECT_EQ(sent, static_cast<ssize_t>(message.size())) << std::strerror(errno);
}

std::vector<std::string> RawPeer::received() const {
  const Fault::Bypass bypass;
  std::vector<std::string> messages;
  char message[kLongestMessage];
  ssize_t size;
  while ((size = ::recv(fd(), message, sizeof message, MSG_DONTWAIT)) > 0) {
    messages.emplace_back(message, static_cast<size_t>(size));
  }
  return messages;
}

bool RawPeer::isPeerClosed() const {
  const Fault::Bypass bypass;
  pollfd entry = {fd(), POLLIN, 0};
  EXPECT_GE(::poll(&entry, 1, 0), 0) << std::strerror(errno);
  return (entry.revents & POLLHUP) != 0;
}

RawPeer::Event RawPeer::next() const {
  const Fault::Bypass bypass;
  pollfd entry = {fd(), POLLIN, 0};
  const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(kTimeout);
  if (::poll(&entry, 1, static_cast<int>(limit.count())) <= 0) return Event::kNothing;
  char byte;
  return ::recv(fd(), &byte, 1, 0) > 0 ? Event::kMessage : Event::kEnd;
}

bool RawPeer::awaitKick() const {
  return next() == Event::kMessage;
}

bool RawPeer::awaitClose() const {
  Event event;
  do {
    event = next();
  } while (event == Event::kMessage);
  return event == Event::kEnd;
}

}  // namespace Zorbe::Test
