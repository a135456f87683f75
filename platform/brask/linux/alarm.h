// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "brask/linux/owned_fd.h"

namespace Brask::Linux {

/// The timerfd, and what is known of its state, so that it is set only when that
/// changes something.
class Alarm {
 public:
  Alarm();

  int fd() const { return fd_.get(); }

  /// The kernel has reported the descriptor readable.
  void rang() { rang_ = true; }
  bool hasRung() const { return rang_; }

  /// Before a wait of the loop itself: rings at `expiry` (0: never) or before.
  /// One ring too early costs a wake-up, setting it costs a call at every move.
  void ringBy(int64_t expiry);

  /// For someone who polls the loop from outside: rings at `expiry` (0: never)
  /// and not before.
  void ringAt(int64_t expiry);

  /// Readable from now on.
  void ringNow();

 private:
  void set(int64_t expiry);

  OwnedFd fd_;
  int64_t expiry_ = 0;  // 0 while not set
  bool rang_ = false;   // stays readable until set again
};

}  // namespace Brask::Linux
