// SPDX-License-Identifier: MIT
//
// The codecs against the plainest form of each, over any bytes at any place in memory.
#include "stress/fuzz/fuzzer.h"
#include "support/fake_platform.h"

#include <zorbe/counters.h>
#include <zorbe/util.h>

#include <sstream>
#include <vector>

namespace Zorbe::Test::Fuzz {
namespace {

uint32_t naiveHash(const std::string& bytes) {
  if (bytes.empty()) return 0;
  uint32_t h = 0;
  for (const char c : bytes) {
    h = 1025 * (h + static_cast<uint32_t>(static_cast<signed char>(c)));
    h ^= h / 64;
  }
  h *= 9;
  return 32769 * (h ^ h / 2048);
}

uint16_t naiveChecksum(const std::vector<uint16_t>& words) {
  uint16_t sum = 0;
  for (const uint16_t word : words) {
    const int change = (word & 0x8000) != 0 ? word & 0x7fff : -word;
    sum = static_cast<uint16_t>(sum + change);
  }
  return sum;
}

void checkFenix(uint16_t low, uint16_t high) {
  uint32_t fenix = 0;
  Util::encodeFenix(low, high, fenix);
  EXPECT_EQ(fenix, high * 65536u + low);
  uint16_t lowAgain = 0;
  uint16_t highAgain = 0;
  Util::decodeFenix(fenix, lowAgain, highAgain);
  EXPECT_EQ(lowAgain, low);
  EXPECT_EQ(highAgain, high);
}

void checkMagic(uint64_t magic) {
  std::string text;
  for (; (magic & 0xff) != 0 && text.size() < 8; magic >>= 8) text += static_cast<char>(magic);
  std::string bytes = text + std::string(8 - text.size(), '\0');
  uint64_t again = 0;
  std::memcpy(&again, bytes.data(), sizeof again);
  EXPECT_EQ(Util::decodeMagic(again), text);
}

// For any counters, the text has its length and its words.
template <class Counters>
void checkCounters(const std::string& bytes) {
  Counters counters = {};
  const size_t fullLength = counters.toString().size();
  std::memcpy(&counters, bytes.data(), std::min(bytes.size(), sizeof counters));
  std::ostringstream printed;
  printed << counters;
  EXPECT_EQ(printed.str(), counters.toString());
  EXPECT_EQ(printed.str().size(), fullLength);
}

// At each place in memory that words can be at, as the words of a vector register see it.
void checkChecksum(const std::string& bytes, size_t shift) {
  std::vector<uint16_t> words(bytes.size() / 2 + shift);
  if (bytes.size() / 2 != 0) std::memcpy(words.data() + shift, bytes.data(), bytes.size() / 2 * 2);
  const std::vector<uint16_t> range(words.begin() + static_cast<std::ptrdiff_t>(shift),
                                    words.end());
  EXPECT_EQ(Util::ipChecksumRange(words.data() + shift, words.data() + words.size()),
            naiveChecksum(range));
}

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER(input) {
  using namespace Zorbe::Test::Fuzz;
  const size_t shift = input.below(32);
  checkFenix(input.number<uint16_t>(), input.number<uint16_t>());
  checkMagic(input.number<uint64_t>());
  const std::string bytes = input.rest();
  const std::vector<char> exact(bytes.begin(), bytes.end());
  EXPECT_EQ(Zorbe::Util::hash(exact.data(), static_cast<unsigned>(exact.size())), naiveHash(bytes));
  checkChecksum(bytes, shift);
  checkCounters<Zorbe::Reader::Counters>(bytes);
  checkCounters<Zorbe::Writer::Counters>(bytes);
}
