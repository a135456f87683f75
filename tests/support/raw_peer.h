// SPDX-License-Identifier: MIT
#pragma once

#include "support/descriptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// A sequence number as it is sent.
std::string bytesOf(uint64_t sequence);

/// A socket of a table, of either end, without any of the library's state machines. Its calls
/// are neither counted nor made to fail.
class RawPeer {
 public:
  enum class Blocking { kNo, kYes };

  /// Not open.
  RawPeer() = default;

  /// A socket like those of readers.
  static Descriptor newSocket(Blocking blocking = Blocking::kNo);

  /// Holds the name of the table at this path, without listening. Not open when it is taken.
  static RawPeer bind(const std::string& rootPath);

  /// Holds the name and listens. Not open when the name is taken.
  static RawPeer listen(const std::string& rootPath, int backlog = 5);

  /// Connects to the table's writer, by `socket`. Not open when that fails: see errno. A socket
  /// that blocks waits for room in the writer's queue, and later in the buffer of a `send`.
  static RawPeer connect(const std::string& rootPath, Descriptor socket = newSocket());

  /// Connections until the writer's queue has no more room.
  static std::vector<RawPeer> fillQueue(const std::string& rootPath);

  /// The oldest pending connection. Not open when there is none.
  RawPeer accept() const;

  bool isOpen() const { return fd_.isOpen(); }
  int fd() const { return fd_.get(); }
  int release() { return fd_.release(); }
  void close() { fd_.close(); }

  /// Sends a message of these bytes, possibly none. Fails the test when that fails.
  void send(const std::string& message) const;

  /// Sends what a reader reports.
  void report(uint64_t sequence) const { send(bytesOf(sequence)); }

  /// All messages that have arrived, without waiting.
  std::vector<std::string> received() const;

  /// Whether the other end is closed by now.
  bool isPeerClosed() const;

  /// Waits for a message. False when the other end closes instead, or nothing comes in time.
  bool awaitKick() const;

  /// Drops messages until the other end closes. False when that takes too long.
  bool awaitClose() const;

 private:
  explicit RawPeer(Descriptor fd) : fd_(std::move(fd)) {}
  enum class Event { kMessage, kEnd, kNothing };
  Event next() const;

  Descriptor fd_;
};

}  // namespace Zorbe::Test
