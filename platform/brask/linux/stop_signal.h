// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include "brask/linux/owned_fd.h"

namespace Brask::Linux {

/// The wish that run() returns, raised from any thread or signal handler.
class StopSignal {
 public:
  StopSignal();

  int fd() const { return fd_.get(); }

  /// Async-signal-safe; leaves errno alone.
  void raise() noexcept;

  /// Makes the descriptor readable without a wish. Async-signal-safe.
  void call() noexcept;

  bool raised() const { return raised_.load(std::memory_order_acquire); }

  /// Makes the descriptor unreadable; the wish itself stays.
  void quiet();

  /// The wish has been fulfilled.
  void lower();

 private:
  OwnedFd fd_;
  std::atomic<bool> raised_{false};
  static_assert(std::atomic<bool>::is_always_lock_free, "raise() runs in signal handlers");
};

}  // namespace Brask::Linux
