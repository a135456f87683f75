// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace Zorbe::Test::Fuzz {

/// The bytes that the fuzzer has generated, consumed from front to back. After their end everything
/// is zero or empty, so that each prefix of an input is an input.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : next_(data), left_(size) {}

  bool atEnd() const { return left_ == 0; }

  uint8_t byte() { return number<uint8_t>(); }

  /// Below `limit`, which is at most 256.
  unsigned below(size_t limit) { return static_cast<unsigned>(byte() % limit); }

  bool flag() { return (byte() & 1) != 0; }

  template <class Number>
  Number number() {
    Number value = 0;
    const size_t size = std::min(left_, sizeof value);
    if (size != 0) std::memcpy(&value, next_, size);
    skip(size);
    return value;
  }

  /// A length in one byte, and as many bytes.
  std::string text() {
    const size_t wanted = byte();
    return take(wanted);
  }

  /// A text without what no file's name has.
  std::string fileName() {
    std::string name = text();
    const auto impossible = [](char c) { return c == '\0' || c == '/'; };
    name.erase(std::remove_if(name.begin(), name.end(), impossible), name.end());
    return name;
  }

  std::string rest() { return take(left_); }

 private:
  std::string take(size_t wanted) {
    const size_t size = std::min(wanted, left_);
    std::string taken(reinterpret_cast<const char*>(next_), size);
    skip(size);
    return taken;
  }

  void skip(size_t size) {
    next_ += size;
    left_ -= size;
  }

  const uint8_t* next_;
  size_t left_;
};

}  // namespace Zorbe::Test::Fuzz
