// SPDX-License-Identifier: MIT
#include <cxxabi.h>
#include <zorbe/util.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace Zorbe::Util {

namespace {

// `char` is unsigned on some hosts and with some flags; the hashes are not.
uint32_t signedByte(char c) {
  return static_cast<uint32_t>(static_cast<signed char>(c));
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
// as signed numbers both are -|w|, plus 0x8000 for each negative one. So the magnitudes are
// summed up, and of the signs only their parity matters: no branch, and a loop that
// compilers turn into vector instructions.
uint16_t ipChecksumRange(const uint16_t* begin, const uint16_t* end) {
  uint16_t magnitudes = 0;
  uint16_t signs = 0;
  for (; begin != end; ++begin) {
    const auto word = static_cast<int16_t>(*begin);
    magnitudes = static_cast<uint16_t>(magnitudes + std::abs(word));
    signs = static_cast<uint16_t>(signs ^ *begin);
  }
  return static_cast<uint16_t>((signs & 0x8000) - magnitudes);
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
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  return readable ? readable.get() : mangled;
}

}  // namespace Zorbe::Util
