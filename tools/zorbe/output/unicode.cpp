// SPDX-License-Identifier: MIT
#include "output/unicode.h"

#include <algorithm>
#include <iterator>

namespace Zorbe::Tool {

namespace {

// The first two bytes determine the length of a well-formed sequence: see RFC 3629.
std::size_t sequenceLength(unsigned char first, unsigned char second) {
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first < 0xe0) return 2;
  if (first >= 0xe0 && first < 0xf0) {
    const bool overlong = first == 0xe0 && second < 0xa0;
    const bool surrogate = first == 0xed && second >= 0xa0;
    return overlong || surrogate ? 0 : 3;
  }
  if (first < 0xf0 || first > 0xf4) return 0;
  const bool outside = (first == 0xf0 && second < 0x90) || (first == 0xf4 && second >= 0x90);
  return outside ? 0 : 4;
}

}  // namespace

std::size_t sequenceAt(std::string_view bytes, std::size_t position) {
  const auto at = [&](std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
  };
  const std::size_t length = sequenceLength(static_cast<unsigned char>(at(position)),
                                            static_cast<unsigned char>(at(position + 1)));
  for (std::size_t i = 1; i < length; ++i) {
    if ((at(position + i) & 0xc0U) != 0x80U) return 0;
  }
  return length;
}

char32_t decode(const char* bytes, std::size_t length) {
  const auto first = static_cast<unsigned char>(bytes[0]);
  if (length == 1) return first;
  char32_t code = first & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    code = (code << 6U) | (static_cast<unsigned char>(bytes[i]) & 0x3fU);
  }
  return code;
}

bool isHarmless(char32_t code) {
  struct Range {
    char32_t first, last;
  };
  // Controls, and format characters that reorder, hide or separate: Cc and Cf of Unicode, and
  // the line and paragraph separators.
  static constexpr Range kHarmful[] = {
      {0x00, 0x1f},     {0x7f, 0x9f},     {0xad, 0xad},     {0x0600, 0x0605},  {0x061c, 0x061c},
      {0x06dd, 0x06dd}, {0x070f, 0x070f}, {0x180e, 0x180e}, {0x200b, 0x200f},  {0x2028, 0x202e},
      {0x2060, 0x206f}, {0xfeff, 0xfeff}, {0xfff9, 0xfffb}, {0xe0000, 0xe0fff}};
  return std::none_of(std::begin(kHarmful), std::end(kHarmful), [code](const Range& range) {
    return code >= range.first && code <= range.last;
  });
}

}  // namespace Zorbe::Tool
