// SPDX-License-Identifier: MIT
#include "support/channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace Zorbe::Test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kBufferSize = 4096;

/// Whether poll(2) reports one of `events`, or an error, before the deadline.
bool awaitEvents(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd entry = {fd, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(std::max<long long>(0, left.count())));
    if (ready >= 0) return ready > 0;
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  }
}

}  // namespace

void Channel::send(const std::string& message) {
  const Fault::Bypass bypass;
  const std::string line = message + '\n';
  if (::send(fd(), line.data(), line.size(), MSG_NOSIGNAL) < 0)
    throw std::system_error(errno, std::generic_category(), peer_);
}

/// False at the end of the stream, which a killed peer may leave as a reset connection.
bool Channel::receiveUpTo(size_t size) {
  char buffer[kBufferSize];
  const ssize_t length = ::recv(fd(), buffer, size, 0);
  if (length > 0) partial_.append(buffer, static_cast<size_t>(length));
  return length > 0;
}

// Looks for the newline before it takes anything: the descriptor stays readable as long as
// there is another message, as an event loop expects.
bool Channel::receiveLine(std::string& line, std::chrono::milliseconds limit) {
  const Fault::Bypass bypass;
  const auto deadline = Clock::now() + limit;
  for (;;) {
    if (!awaitEvents(fd(), POLLIN, deadline))
      throw std::runtime_error(peer_ + " has not answered in time");
    char buffer[kBufferSize];
    const ssize_t length = ::recv(fd(), buffer, sizeof buffer, MSG_PEEK);
    if (length <= 0) return false;
    const void* const end = std::memchr(buffer, '\n', static_cast<size_t>(length));
    if (end == nullptr) {
      receiveUpTo(static_cast<size_t>(length));
      continue;
    }
    if (!receiveUpTo(static_cast<size_t>(static_cast<const char*>(end) - buffer) + 1)) return false;
    line = std::exchange(partial_, {});
    line.pop_back();
    return true;
  }
}

std::string Channel::receive() {
  std::string line;
  if (!receiveLine(line)) throw std::runtime_error(peer_ + " has closed its end");
  return line;
}

void Channel::await(const std::string& message) {
  for (std::string received = receive(); received != message;) {
    try {
      received = receive();
    } catch (const std::runtime_error& reason) {
      throw std::runtime_error("no \"" + message + "\" after \"" + received +
                               "\": " + reason.what());
    }
  }
}

std::string Channel::awaitLine(const std::string& prefix) {
  for (;;) {
    std::string line = receive();
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  }
}

std::string Channel::receiveAll(std::chrono::milliseconds limit) {
  std::string all;
  for (std::string line; receiveLine(line, limit);) all += line + '\n';
  return all + std::exchange(partial_, {});
}

bool Channel::drain() {
  const Fault::Bypass bypass;
  char buffer[kBufferSize];
  ssize_t length;
  do {
    length = ::recv(fd(), buffer, sizeof buffer, MSG_DONTWAIT);
  } while (length > 0 || (length < 0 && errno == EINTR));
  return length < 0 && errno == EAGAIN;
}

bool Channel::endsWithin(std::chrono::milliseconds limit) const {
  const Fault::Bypass bypass;
  return awaitEvents(fd(), 0, Clock::now() + limit);
}

}  // namespace Zorbe::Test
