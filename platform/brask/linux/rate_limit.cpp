// SPDX-License-Identifier: MIT
#include "brask/linux/rate_limit.h"

#include <algorithm>

#include "brask/linux/monotonic.h"

namespace Brask::Linux {

bool RateLimit::hasRoom(int64_t now) {
  const int64_t seconds = (now - countedUpTo_) / kNanosecondsPerSecond;
  if (seconds > 0) {
    countedUpTo_ += seconds * kNanosecondsPerSecond;
    const auto passed = static_cast<uint64_t>(seconds);
    const uint64_t missing = burst_ - left_;
    const bool enough = perSecond_ != 0 && passed >= missing / perSecond_ + 1;
    left_ += enough ? missing : std::min(missing, passed * perSecond_);
  }
  return left_ != 0;
}

}  // namespace Brask::Linux
