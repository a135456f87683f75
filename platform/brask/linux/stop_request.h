// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include "brask/linux/owned_fd.h"

namespace Brask::Linux {

/// The request that run() returns, set from any thread or signal handler.
class StopRequest {
 public:
  StopRequest();

  int fd() const { return fd_.get(); }

  /// Sets the request and wakes the loop. Async-signal-safe; does not change errno.
  void set() noexcept;

  /// Makes the descriptor readable without a request. Async-signal-safe.
  void wake() noexcept;

  bool isSet() const { return set_.load(std::memory_order_acquire); }

  /// Makes the descriptor unreadable; the request stays.
  void drain();

  /// Ends the request: run() returns.
  void clear();

 private:
  OwnedFd fd_;
  std::atomic<bool> set_{false};
  static_assert(std::atomic<bool>::is_always_lock_free, "set() runs in signal handlers");
};

}  // namespace Brask::Linux
