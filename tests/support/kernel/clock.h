// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>

namespace Zorbe::Test::Kernel {

/// A monotonic clock, in nanoseconds, that does not advance between its calls.
class Clock {
 public:
  static constexpr int64_t kSecond = 1000000000;

  explicit Clock(int64_t now = 0) : now_(now) {}

  int64_t now() const { return now_; }
  void advance(int64_t nanoseconds) { now_ += nanoseconds; }
  void advanceTo(int64_t time) { now_ = std::max(now_, time); }

  /// The time in so many seconds.
  int64_t after(double seconds) const { return now_ + static_cast<int64_t>(seconds * kSecond); }

 private:
  int64_t now_;
};

}  // namespace Zorbe::Test::Kernel
