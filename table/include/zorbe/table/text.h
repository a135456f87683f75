// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <string_view>
#include <type_traits>

namespace Zorbe::Table {

/// Text of at most `N` bytes: a key, or a field of a record. The bytes after the text are zero,
/// so that equal texts have equal representations; zero bytes inside of it are allowed.
///
/// Lies in a table as N bytes (one more when N is odd and above 255) and their length, which has
/// one byte up to 255 and two above.
template <size_t N>
class Text {
  static_assert(N > 0 && N <= 65535, "a Text has room for 1 to 65535 bytes");

 public:
  static constexpr size_t kCapacity = N;  ///< bytes

  /// Empty.
  constexpr Text() = default;

  /// Cuts off what does not fit; call fits() before where that matters.
  Text(std::string_view text) : length_(static_cast<Length>(text.size() < N ? text.size() : N)) {
    std::memcpy(bytes_, text.data(), length_);
  }
  Text(const char* text) : Text(std::string_view(text)) {}  ///< as above, up to the zero byte

  /// Whether a text has room in it as a whole.
  static constexpr bool fits(std::string_view text) { return text.size() <= N; }

  /// The text, valid for as long as this object is. Never longer than N, also when
  /// the object was read from corrupted memory.
  std::string_view view() const { return {bytes_, length_ < N ? length_ : N}; }

  /// Texts compare as their views do.
  friend bool operator==(const Text& a, const Text& b) { return a.view() == b.view(); }
  friend bool operator!=(const Text& a, const Text& b) { return !(a == b); }           ///< as above
  friend bool operator<(const Text& a, const Text& b) { return a.view() < b.view(); }  ///< as above

  /// Writes the text and nothing else.
  friend std::ostream& operator<<(std::ostream& out, const Text& text) {
    return out << text.view();
  }

 private:
  using Length = std::conditional_t<(N > 255), uint16_t, uint8_t>;

  char bytes_[N > 255 ? N + N % 2 : N] = {};
  Length length_ = 0;
};

}  // namespace Zorbe::Table

/// @cond
template <size_t N>
struct std::hash<Zorbe::Table::Text<N>> {
  size_t operator()(const Zorbe::Table::Text<N>& text) const noexcept {
    return std::hash<std::string_view>()(text.view());
  }
};
/// @endcond
