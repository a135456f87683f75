// SPDX-License-Identifier: MIT
#include "records/json_text.h"

#include <cstdint>
#include <cstdio>

#include "output/text.h"
#include "output/unicode.h"
#include "records/bad_input.h"

namespace Zorbe::Tool {

namespace {

constexpr uint32_t kFirstByteSurrogate = 0xdc00;  // plus the byte

std::string unicodeEscape(uint32_t code) {
  char text[8];
  static_cast<void>(std::snprintf(text, sizeof text, "\\u%04x", code & 0xffffU));
  return text;
}

void appendCharacter(std::string& out, char c) {
  constexpr std::string_view kEscaped = "\b\f\n\r\t\"\\";
  constexpr std::string_view kLetters = "bfnrt\"\\";
  const size_t found = kEscaped.find(c);
  const auto byte = static_cast<unsigned char>(c);
  if (found != std::string_view::npos) {
    out += '\\';
    out += kLetters[found];
  } else if (byte < 0x20) {
    out += unicodeEscape(byte);
  } else {
    out += c;
  }
}

void appendUtf8(std::string& out, uint32_t code) {
  const auto tail = [&](unsigned shift) {
    out += static_cast<char>(0x80U | (code >> shift & 0x3fU));
  };
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xc0U | code >> 6);
    tail(0);
  } else if (code < 0x10000) {
    out += static_cast<char>(0xe0U | code >> 12);
    tail(6);
    tail(0);
  } else {
    out += static_cast<char>(0xf0U | code >> 18);
    tail(12);
    tail(6);
    tail(0);
  }
}

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  std::vector<JsonMember> object() {
    std::vector<JsonMember> members;
    skipBlanks();
    if (!skip('{')) fail("an object is needed");
    skipBlanks();
    if (!skip('}')) {
      do {
        members.push_back(member());
      } while (isSeparated('}'));
    }
    skipBlanks();
    if (at_ != text_.size()) fail("there is more after the object");
    return members;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw BadInput(what + " at byte " + std::to_string(at_ + 1));
  }

  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  bool skip(char c) {
    if (at_ == text_.size() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  bool skipWord(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) return false;
    at_ += word.size();
    return true;
  }

  void skipBlanks() {
    while (skip(' ') || skip('\t') || skip('\r') || skip('\n')) {
    }
  }

  // After an element: true for a comma, false for the end.
  bool isSeparated(char end) {
    skipBlanks();
    if (skip(end)) return false;
    if (!skip(',')) fail(std::string("a comma or ") + end + " is needed");
    return true;
  }

  JsonMember member() {
    JsonMember member;
    skipBlanks();
    member.name = string();
    skipBlanks();
    if (!skip(':')) fail("a colon is needed");
    skipBlanks();
    member.isArray = skip('[');
    if (!member.isArray) {
      member.values.push_back(scalar());
      return member;
    }
    skipBlanks();
    if (skip(']')) return member;
    do {
      skipBlanks();
      member.values.push_back(scalar());
    } while (isSeparated(']'));
    return member;
  }

  JsonScalar scalar() {
    if (peek() == '"') return {JsonScalar::Kind::kText, string()};
    if (skipWord("true")) return {JsonScalar::Kind::kBoolean, "true"};
    if (skipWord("false")) return {JsonScalar::Kind::kBoolean, "false"};
    return {JsonScalar::Kind::kNumber, number()};
  }

  std::string number() {
    const size_t begin = at_;
    skip('-');
    if (!skip('0')) digits();
    if (skip('.')) digits();
    if (skip('e') || skip('E')) {
      if (!skip('+')) skip('-');
      digits();
    }
    return std::string(text_.substr(begin, at_ - begin));
  }

  void digits() {
    const size_t begin = at_;
    while (peek() >= '0' && peek() <= '9') ++at_;
    if (at_ == begin) fail("a text, a number, true or false is needed");
  }

  std::string string() {
    if (!skip('"')) fail("a quotation mark is needed");
    std::string text;
    while (!skip('"')) {
      if (at_ == text_.size()) fail("a text does not end");
      if (skip('\\')) {
        escape(text);
      } else {
        character(text);
      }
    }
    return text;
  }

  void character(std::string& text) {
    if (static_cast<unsigned char>(peek()) < 0x20) fail("a control character in a text");
    const size_t length = sequenceAt(text_, at_);
    if (length == 0) fail("a text is not valid UTF-8");
    text += text_.substr(at_, length);
    at_ += length;
  }

  void escape(std::string& text) {
    constexpr std::string_view kLetters = "bfnrt\"\\/";
    constexpr std::string_view kMeanings = "\b\f\n\r\t\"\\/";
    if (skip('u')) return unicode(text);
    const size_t found = at_ < text_.size() ? kLetters.find(peek()) : std::string_view::npos;
    if (found == std::string_view::npos) fail("an unknown escape sequence");
    text += kMeanings[found];
    ++at_;
  }

  void unicode(std::string& text) {
    const uint32_t first = fourDigits();
    if (first >= 0xdc80 && first <= 0xdcff) {  // a byte
      text += static_cast<char>(first - kFirstByteSurrogate);
      return;
    }
    if (first < 0xd800 || first > 0xdfff) return appendUtf8(text, first);
    const bool isPair = first < 0xdc00 && skipWord("\\u");
    const uint32_t second = isPair ? fourDigits() : 0;
    if (second < 0xdc00 || second > 0xdfff) fail("half of a pair of surrogates");
    appendUtf8(text, 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00));
  }

  uint32_t fourDigits() {
    constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
    uint32_t code = 0;
    for (int i = 0; i < 4; ++i, ++at_) {
      const size_t digit = at_ < text_.size() ? kDigits.find(text_[at_]) : std::string_view::npos;
      if (digit == std::string_view::npos) fail("four hexadecimal digits are needed");
      code = code * 16 + static_cast<uint32_t>(digit < 16 ? digit : digit - 6);
    }
    return code;
  }

  std::string_view text_;
  size_t at_ = 0;
};

}  // namespace

void appendJsonText(std::string& out, std::string_view bytes) {
  std::string text = "\"";
  for (size_t i = 0; i < bytes.size();) {
    const size_t length = sequenceAt(bytes, i);
    if (length == 0) {
      text += unicodeEscape(kFirstByteSurrogate + static_cast<unsigned char>(bytes[i++]));
    } else if (length == 1) {
      appendCharacter(text, bytes[i++]);
    } else {
      text += bytes.substr(i, length);
      i += length;
    }
  }
  out += withoutHarmful(text) + '"';
}

std::vector<JsonMember> parseJsonRow(std::string_view line) {
  return Parser(line).object();
}

}  // namespace Zorbe::Tool
