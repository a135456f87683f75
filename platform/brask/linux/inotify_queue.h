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

/// Events that were read from an inotify descriptor and have not been taken. The position of an
/// event in the stream tells whether it happened before a registration began.
class InotifyQueue {
 public:
  InotifyQueue();

  /// One read(2), whose events can be taken in this turn.
  void read(int fd);

  /// Reads all that the kernel has queued, so that end() is after everything that has happened
  /// by now: the kernel merges an event with an equal one at the end of its queue. The events
  /// can be taken in the next turn. With a lot here already, or no memory, the rest stays in the
  /// kernel. take() throws the error of a read that fails.
  void drain(int fd);

  /// All events that were read so far can be taken.
  void beginTurn() { turnEnd_ = end_; }

  /// The next event; false when there is none for this turn.
  bool take(InotifyEvent& event);

  bool empty() const { return next_ == end_ && failure_ == 0; }

  /// The position after all events that were read.
  uint64_t end() const { return base_ + end_; }

 private:
  int readSome(int fd);
  void shift();

  std::vector<char> buffer_;
  uint64_t base_ = 0;  // the position of the buffer's first byte
  size_t next_ = 0;
  size_t turnEnd_ = 0;
  size_t end_ = 0;
  int failure_ = 0;  // of a drain, not thrown yet
};

}  // namespace Brask::Linux
