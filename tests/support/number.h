// SPDX-License-Identifier: MIT
#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace Zorbe::Test {

/// What may be asked for, the ends included.
struct Range {
  uint64_t least;
  uint64_t most;
};

/// A whole text that is a decimal number of that range, or nothing.
inline std::optional<uint64_t> readNumber(const char* text, Range range) {
  uint64_t number = 0;
  const char* const end = text + std::strlen(text);
  const auto [after, error] = std::from_chars(text, end, number);
  if (error != std::errc() || after != end) return std::nullopt;
  if (number < range.least || number > range.most) return std::nullopt;
  return number;
}

/// For the message about another number.
inline std::string describe(Range range) {
  return "a number from " + std::to_string(range.least) + " to " + std::to_string(range.most);
}

}  // namespace Zorbe::Test
