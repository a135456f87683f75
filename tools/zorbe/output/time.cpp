// SPDX-License-Identifier: MIT
#include "output/time.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace Zorbe::Tool {

std::string utcTime(int64_t nanoseconds) {
  constexpr int64_t kSecond = 1'000'000'000;
  const bool before = nanoseconds % kSecond < 0;  // a part of a second before 1970
  const int64_t rest = nanoseconds % kSecond + (before ? kSecond : 0);
  const auto time = static_cast<std::time_t>(nanoseconds / kSecond - (before ? 1 : 0));
  std::tm parts{};
  static_cast<void>(gmtime_r(&time, &parts));
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  static_cast<void>(std::snprintf(text + length, sizeof text - length, ".%03dZ",
                                  static_cast<int>(rest / 1'000'000)));
  return text;
}

int64_t realTimeNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

std::string duration(double seconds) {
  struct Unit {
    double seconds;
    const char* name;
  };
  constexpr Unit kUnits[] = {{86400, "d"}, {3600, "h"}, {60, "min"}};
  char text[48];
  for (const Unit& unit : kUnits) {
    if (seconds < 2 * unit.seconds) continue;
    static_cast<void>(
        std::snprintf(text, sizeof text, "%.0f %s", seconds / unit.seconds, unit.name));
    return text;
  }
  static_cast<void>(std::snprintf(text, sizeof text, "%.*f s", seconds < 10 ? 1 : 0, seconds));
  return text;
}

}  // namespace Zorbe::Tool
