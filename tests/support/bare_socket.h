// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "sockets/sockaddr.h"
#include "support/recording_handler.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Test {

/// A sequence as it travels.
inline std::string bytesOf(uint64_t sequence) {
  std::string bytes(sizeof sequence, '\0');
  std::memcpy(bytes.data(), &sequence, sizeof sequence);
  return bytes;
}

/// The other end of a kick connection, without any of the library's state machines. What it
/// does is not counted and does not fail.
class BareSocket {
 public:
  BareSocket() = default;
  BareSocket(BareSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  BareSocket& operator=(BareSocket&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~BareSocket() { hangUp(); }

  /// Is a writer: holds the table's name and listens.
  static BareSocket listenAs(const std::string& table) {
    const Fault::Bypass bypass;
    BareSocket made = create();
    const TableAddress name = addressOf(table);
    must(::bind(made.fd_, name.get(), name.length()) == 0, "bind");
    must(::listen(made.fd_, 5) == 0, "listen");
    return made;
  }

  /// Is a reader. One that the queue of pending connections has no room for is not connected.
  static BareSocket connectTo(const std::string& table) {
    const Fault::Bypass bypass;
    BareSocket made = create();
    const TableAddress name = addressOf(table);
    if (::connect(made.fd_, name.get(), name.length()) != 0) made.hangUp();
    return made;
  }

  /// The connection that waits to be accepted; not connected when there is none.
  BareSocket acceptOne() {
    const Fault::Bypass bypass;
    return BareSocket(::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  }

  bool connected() const { return fd_ >= 0; }

  void send(const std::string& record) {
    const Fault::Bypass bypass;
    must(::send(fd_, record.data(), record.size(), 0) == static_cast<ssize_t>(record.size()),
         "send");
  }
  void report(uint64_t sequence) { send(bytesOf(sequence)); }

  /// All records that have arrived.
  std::vector<std::string> received() {
    const Fault::Bypass bypass;
    std::vector<std::string> records;
    char record[64];
    ssize_t size;
    while ((size = ::recv(fd_, record, sizeof record, MSG_DONTWAIT)) > 0) {
      records.emplace_back(record, static_cast<size_t>(size));
    }
    return records;
  }

  /// The other end has closed the connection.
  bool abandoned() const {
    const Fault::Bypass bypass;
    pollfd entry = {fd_, POLLIN, 0};
    must(::poll(&entry, 1, 0) >= 0, "poll");
    return (entry.revents & POLLHUP) != 0;
  }

  void hangUp() {
    const Fault::Bypass bypass;
    if (fd_ >= 0) (void)::close(std::exchange(fd_, -1));
  }

 private:
  explicit BareSocket(int fd) : fd_(fd) {}

  static BareSocket create() {
    BareSocket made(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    must(made.connected(), "socket");
    return made;
  }
  static TableAddress addressOf(const std::string& table) {
    RecordingHandler silent;
    silent.setMaxLevel(RecordingHandler::nothing);
    return TableAddress(silent, table);
  }
  static void must(bool good, const char* call) {
    if (!good) throw std::runtime_error(std::string(call) + ": " + std::strerror(errno));
  }

  int fd_ = -1;
};

}  // namespace Zorbe::Test
