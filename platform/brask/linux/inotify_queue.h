// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Brask::Linux {

/// One event of inotify(7).
struct InotifyEvent {
  int wd = -1;
  uint32_t mask = 0;
  uint64_t position = 0;  // in the stream of all events, in bytes
  std::string name;       // empty where the kernel gives none
};

/// What was read from an inotify descriptor and has not been taken. Positions in the stream
/// tell what happened before a registration began from what happened after.
class InotifyQueue {
 public:
  InotifyQueue();

  /// One read(2), which can be taken in this turn.
  void read(int fd);

  /// Takes over what the kernel has, so that end() lies behind all that has happened by now:
  /// the kernel merges an event with an equal one that it still has. Can be taken in the next
  /// turn. With a lot here already, or no memory, the rest stays with the kernel. A read
  /// that fails is thrown by take().
  void drain(int fd);

  /// What was read so far can be taken.
  void beginTurn() { admitted_ = end_; }

  /// The next event; false when there is none for this turn.
  bool take(InotifyEvent& event);

  bool empty() const { return next_ == end_ && failure_ == 0; }

  /// The position behind all events that were read.
  uint64_t end() const { return base_ + end_; }

 private:
  int readSome(int fd);
  void shift();

  std::vector<char> buffer_;
  uint64_t base_ = 0;  // the position of the buffer's first byte
  size_t next_ = 0;
  size_t admitted_ = 0;
  size_t end_ = 0;
  int failure_ = 0;  // of a drain, not thrown yet
};

}  // namespace Brask::Linux
