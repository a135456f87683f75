// SPDX-License-Identifier: MIT
#include "output/metrics.h"

#include <cinttypes>
#include <cstdio>
#include <iostream>

#include "output/text.h"

namespace Zorbe::Tool {

std::string label(const std::string& bytes) {
  std::string text = "\"";
  for (const char c : labelText(bytes)) {
    if (c == '\\' || c == '"') text += '\\';
    text += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return text + '"';
}

void printHead(const char* name, const char* type, const char* help) {
  std::cout << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
}

std::string decimal(double number, int places) {
  char text[64];
  static_cast<void>(std::snprintf(text, sizeof text, "%.*f", places, number));
  return text;
}

MetricValue seconds(int64_t nanoseconds) {
  if (nanoseconds <= 0) return std::nullopt;
  constexpr int64_t kSecond = 1'000'000'000;
  char text[48];
  static_cast<void>(std::snprintf(text, sizeof text, "%" PRId64 ".%09" PRId64,
                                  nanoseconds / kSecond, nanoseconds % kSecond));
  return text;
}

}  // namespace Zorbe::Tool
