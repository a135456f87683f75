// SPDX-License-Identifier: MIT
#include <cxxabi.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Zorbe::Util {

namespace {

// `char` is unsigned on some hosts and with some flags; the hashes take signed bytes.
uint32_t signedByte(char c) {
  return static_cast<uint32_t>(static_cast<signed char>(c));
}

uint16_t sum16(uint16_t left, uint16_t right) {
  return static_cast<uint16_t>(left + right);
}

// Three sums of words modulo 2^16, from which the checksum follows.
struct Sums {
  uint16_t all = 0;
  uint16_t negative = 0;  // of the words that are negative when taken as signed
  uint16_t signs = 0;     // parity of each bit; the top one is the sign

  void add(uint16_t word) {
    all = sum16(all, word);
    negative = sum16(negative, negativeOrZero(word));
    signs = static_cast<uint16_t>(signs ^ word);
  }

  uint16_t checksum() const { return static_cast<uint16_t>(2 * negative - all + (signs & 0x8000)); }

  static uint16_t negativeOrZero(uint16_t word) {
    return static_cast<uint16_t>(std::min(static_cast<int16_t>(word), int16_t{0}));
  }
};

// The same in independent lanes, for as many words as fill all lanes. Returns where those end.
const uint16_t* addLanes(Sums& sums, const uint16_t* begin, const uint16_t* end) {
  constexpr std::ptrdiff_t kLanes = 32;
  if (end - begin < kLanes) return begin;
  uint16_t all[kLanes] = {};
  uint16_t negative[kLanes] = {};
  uint16_t signs[kLanes] = {};
  for (; end - begin >= kLanes; begin += kLanes) {
    for (std::ptrdiff_t lane = 0; lane < kLanes; ++lane) {
      const uint16_t word = begin[lane];
      all[lane] = sum16(all[lane], word);
      negative[lane] = sum16(negative[lane], Sums::negativeOrZero(word));
      signs[lane] = static_cast<uint16_t>(signs[lane] ^ word);
    }
  }
  for (std::ptrdiff_t lane = 0; lane < kLanes; ++lane) {
    sums.all = sum16(sums.all, all[lane]);
    sums.negative = sum16(sums.negative, negative[lane]);
    sums.signs = static_cast<uint16_t>(sums.signs ^ signs[lane]);
  }
  return begin;
}

}  // namespace

uint32_t hash(const std::string& s) {
  uint32_t h = 0x811c9dc5;
  for (const char c : s) h = (h ^ signedByte(c)) * 0x01000193;
  return h;
}

uint32_t hash(const char* p, unsigned len) {
  uint32_t h = 0;
  for (const char* const end = p + len; p != end; ++p) {
    h += signedByte(*p);
    h += h << 10;
    h ^= h >> 6;
  }
  h += h << 3;
  h ^= h >> 11;
  h += h << 15;
  return h;
}

// A word with its top bit set counts as w - 0x8000, any other as -w. With the words taken
// as signed numbers that is w when negative and -w otherwise, plus 0x8000 for each negative
// one: twice the negative words, less all words, plus 0x8000 when the number of negative
// words is odd. No branch, and lanes that compilers turn into vector instructions.
uint16_t ipChecksumRange(const uint16_t* begin, const uint16_t* end) {
  Sums sums;
  for (begin = addLanes(sums, begin, end); begin != end; ++begin) sums.add(*begin);
  return sums.checksum();
}

std::string decodeMagic(uint64_t magic) {
  char bytes[sizeof magic + 1] = {};
  std::memcpy(bytes, &magic, sizeof magic);
  return bytes;
}

void encodeFenix(uint16_t low, uint16_t high, uint32_t& fenix) {
  fenix = static_cast<uint32_t>(high) << 16 | low;
}

void decodeFenix(uint32_t fenix, uint16_t& low, uint16_t& high) {
  low = static_cast<uint16_t>(fenix & 0xffff);
  high = static_cast<uint16_t>(fenix >> 16);
}

std::string demangleName(const char* mangled) {
  if (mangled == nullptr) return {};
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  return readable ? readable.get() : mangled;
}

}  // namespace Zorbe::Util
