// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "brask/linux/owned_fd.h"

namespace Brask::Linux {

/// The timerfd of a loop. Keeps what it was set to, so that it is set again only when that
/// changes something.
class Timerfd {
 public:
  Timerfd();

  int fd() const { return fd_.get(); }

  /// The kernel has reported the descriptor readable.
  void noteExpired() { expired_ = true; }
  bool hasExpired() const { return expired_; }

  /// Before a wait of the loop itself: becomes readable at `expiry` (0: never) or earlier.
  /// Expiring too early costs one wake-up; setting the timer costs a call each time.
  void armNoLaterThan(int64_t expiry);

  /// For a client that polls the loop from outside: becomes readable at `expiry` (0: never),
  /// not earlier.
  void armAt(int64_t expiry);

  /// Becomes readable now.
  void expireNow();

 private:
  void set(int64_t expiry);

  OwnedFd fd_;
  int64_t expiry_ = 0;    // 0 while not set
  bool expired_ = false;  // stays readable until set again
};

}  // namespace Brask::Linux
