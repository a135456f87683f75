// SPDX-License-Identifier: MIT
#include "output/text.h"

#include <cstdio>
#include <system_error>

namespace Zorbe::Tool {

namespace {

std::string hexEscape(unsigned char byte) {
  char text[5];
  static_cast<void>(std::snprintf(text, sizeof text, "\\x%02x", byte));
  return text;
}

std::string escape(char c) {
  switch (c) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default:
      break;
  }
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x20 && byte < 0x7f ? std::string(1, c) : hexEscape(byte);
}

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

// The length of the well-formed sequence at `position`, 0 when there is none.
std::size_t validSequence(const std::string& bytes, std::size_t position) {
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

}  // namespace

std::string printable(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) text += escape(c);
  return text;
}

std::string word(const std::string& name) {
  if (!name.empty() && name.find_first_of(" \"") == std::string::npos) return printable(name);
  std::string text = "\"";
  for (const char c : name) text += c == '"' ? "\\\"" : escape(c);
  return text + '"';
}

std::string shellWord(const std::string& name) {
  constexpr const char* kUnquoted =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%=";
  if (!name.empty() && name.find_first_not_of(kUnquoted) == std::string::npos) return name;
  std::string text = "$'";
  for (const char c : name) text += c == '\'' ? "\\'" : escape(c);
  return text + '\'';
}

std::string utf8(const std::string& bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    const std::size_t length = validSequence(bytes, i);
    if (length == 0) {
      text += hexEscape(static_cast<unsigned char>(bytes[i++]));
    } else {
      text.append(bytes, i, length);
      i += length;
    }
  }
  return text;
}

std::string reason(int error) {
  return std::generic_category().message(error);
}

std::string octal(unsigned mode) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, "%04o", mode));
  return text;
}

}  // namespace Zorbe::Tool
