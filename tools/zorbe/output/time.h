// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace Zorbe::Tool {

/// A time of CLOCK_REALTIME in nanoseconds, as UTC with milliseconds, as in RFC 3339.
std::string utcTime(int64_t nanoseconds);

/// CLOCK_REALTIME, nanoseconds.
int64_t realTimeNow();

/// A length of time as people read it: "0.4 s", "12 s", "3 min", "5 h", "2 d".
std::string duration(double seconds);

}  // namespace Zorbe::Tool
