// SPDX-License-Identifier: MIT
#include "output/text.h"

#include <langinfo.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "output/unicode.h"

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

std::string jsonEscape(char32_t code) {
  char text[32];
  if (code < 0x10000) {
    static_cast<void>(std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(code)));
    return text;
  }
  const auto rest = static_cast<unsigned>(code) - 0x10000U;
  static_cast<void>(std::snprintf(text, sizeof text, "\\u%04x\\u%04x", 0xd800U + (rest >> 10U),
                                  0xdc00U + (rest & 0x3ffU)));
  return text;
}

bool isUtf8Locale() {
  return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

// wchar_t holds a code point in every locale of the C library: __STDC_ISO_10646__.
bool showsAsText(char32_t code) {
  return isHarmless(code) && iswprint(static_cast<wint_t>(code)) != 0;
}

bool showsNothing(char32_t /*code*/) {
  return false;
}

// Characters beyond ASCII stay where `shows` says so, `kept` stays anyway.
std::string escaped(const std::string& bytes, bool (*shows)(char32_t), const char* kept) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    const std::size_t length = sequenceAt(bytes, i);
    if (length > 1 && shows(decode(&bytes[i], length))) {
      text.append(bytes, i, length);
      i += length;
    } else {
      const char c = bytes[i++];
      text += std::strchr(kept, c) != nullptr && c != '\0' ? std::string(1, c) : escape(c);
    }
  }
  return text;
}

// What the user's terminal shows as text.
bool (*shownByLocale())(char32_t) {
  return isUtf8Locale() ? showsAsText : showsNothing;
}

}  // namespace

std::string printable(const std::string& bytes) {
  return escaped(bytes, shownByLocale(), "");
}

std::string labelText(const std::string& bytes) {
  return escaped(bytes, isHarmless, "\n");
}

std::size_t displayWidth(const std::string& text) {
  std::size_t width = 0;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = std::max(sequenceAt(text, i), std::size_t{1});
    const int columns = length == 1 ? 1 : wcwidth(static_cast<wchar_t>(decode(&text[i], length)));
    width += columns < 0 ? 1 : static_cast<std::size_t>(columns);
    i += length;
  }
  return width;
}

std::string word(const std::string& name) {
  std::string text = printable(name);
  if (!text.empty() && text.find_first_of(" \"") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? std::string("\\\"") : std::string(1, c);
  return quoted + '"';
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
    const std::size_t length = sequenceAt(bytes, i);
    if (length == 0 || bytes[i] == '\\') {
      text += escape(bytes[i++]);
    } else {
      text.append(bytes, i, length);
      i += length;
    }
  }
  return text;
}

std::string withoutHarmful(const std::string& json) {
  std::string text;
  for (std::size_t i = 0; i < json.size();) {
    const std::size_t length = std::max(sequenceAt(json, i), std::size_t{1});
    const char32_t code = decode(&json[i], length);
    if (isHarmless(code)) {
      text.append(json, i, length);
    } else {
      text += jsonEscape(code);
    }
    i += length;
  }
  return text;
}

std::string counted(std::size_t number, const std::string& noun) {
  std::string text = std::to_string(number) + ' ' + noun;
  if (number == 1) return text;
  if (text.back() != 'y') return text + 's';
  text.pop_back();
  return text + "ies";
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
