// SPDX-License-Identifier: MIT
#pragma once

#include "support/descriptor.h"
#include "support/timeout.h"

#include <string>

namespace Zorbe::Test {

/// One end of the connection between a test and a child process. Messages are lines.
class Channel {
 public:
  Channel(Descriptor fd, std::string peer) : fd_(std::move(fd)), peer_(std::move(peer)) {}

  void send(const std::string& message);

  /// The next message. Throws std::runtime_error when none comes in time, or when the peer
  /// has closed its end.
  std::string receive();

  /// Receives messages until one equals `message`; drops those before.
  void await(const std::string& message);

  /// Receives messages until one begins with `prefix`, and returns it; drops those before.
  std::string awaitLine(const std::string& prefix);

  /// Receives messages until the peer closes its end, and returns them, each with its newline.
  /// Throws std::runtime_error when that takes longer than `limit` for one of them.
  std::string receiveAll(std::chrono::milliseconds limit = kTimeout);

  /// Drops the messages that have arrived, without waiting. False when the peer has closed its end.
  bool drain();

  /// Whether the peer closes its end within that time. Receives nothing.
  bool endsWithin(std::chrono::milliseconds limit) const;

  /// Readable while there is a message to receive.
  int fd() const { return fd_.get(); }

 private:
  bool receiveLine(std::string& line, std::chrono::milliseconds limit = kTimeout);
  bool receiveUpTo(size_t size);

  Descriptor fd_;
  std::string peer_;
  std::string partial_;  // the begin of a line whose newline has not arrived
};

}  // namespace Zorbe::Test
