// SPDX-License-Identifier: MIT
#include "brask/linux/control_characters.h"

#include <cstddef>
#include <cstdint>

namespace Brask::Linux {

namespace {

/// A character and the bytes that it takes; no bytes where none is well-formed.
struct Character {
  uint32_t code = 0;
  size_t bytes = 0;
};

// How many bytes a first byte announces, and the bits of the character that it holds.
Character announced(unsigned char first) {
  if (first < 0x80) return {first, 1};
  if (first < 0xc0) return {};
  if (first < 0xe0) return {first & 0x1fU, 2};
  if (first < 0xf0) return {first & 0x0fU, 3};
  return {first & 0x07U, first < 0xf8 ? size_t{4} : size_t{0}};
}

// RFC 3629: the shortest form only, no surrogates, nothing above U+10FFFF.
bool isWellFormed(const Character& character) {
  constexpr uint32_t kFirstOf[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = character.code >= 0xd800 && character.code < 0xe000;
  return character.code >= kFirstOf[character.bytes] && character.code <= 0x10ffff && !surrogate;
}

Character decode(const std::string& text, size_t position) {
  Character character = announced(static_cast<unsigned char>(text[position]));
  if (position + character.bytes > text.size()) return {};
  for (size_t i = 1; i < character.bytes; ++i) {
    const auto byte = static_cast<unsigned char>(text[position + i]);
    if ((byte & 0xc0U) != 0x80U) return {};
    character.code = character.code << 6U | (byte & 0x3fU);
  }
  return isWellFormed(character) ? character : Character();
}

bool isControl(uint32_t code) {
  return code < 0x20 || (code >= 0x7f && code < 0xa0);
}

void appendEscaped(std::string& line, char character) {
  constexpr const char* kDigits = "0123456789abcdef";
  if (character == '\n') {
    line += "\\n";
  } else if (character == '\r') {
    line += "\\r";
  } else if (character == '\t') {
    line += "\\t";
  } else {
    const auto byte = static_cast<unsigned char>(character);
    line += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xfU]};
  }
}

}  // namespace

std::string escapeControls(const std::string& text) {
  std::string line;
  line.reserve(text.size());
  for (size_t next = 0; next < text.size();) {
    const Character character = decode(text, next);
    const size_t bytes = character.bytes != 0 ? character.bytes : 1;
    if (character.bytes != 0 && !isControl(character.code)) {
      line.append(text, next, bytes);
    } else {
      for (size_t i = 0; i < bytes; ++i) appendEscaped(line, text[next + i]);
    }
    next += bytes;
  }
  return line;
}

}  // namespace Brask::Linux
