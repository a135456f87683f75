// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <zorbe/util.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Zorbe::Test {
namespace {

constexpr unsigned kMaxLength = 200;

std::string randomBytes(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes;
  while (bytes.size() < count) bytes += static_cast<char>(random() & 0xff);
  return bytes;
}

// The references know nothing of `char`'s sign: a byte from 0x80 up brings 24 ones along.
uint32_t widened(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x80 ? byte : byte | 0xffffff00u;
}

uint32_t naiveFnv(const std::string& s) {
  uint64_t h = 2166136261u;
  for (const char c : s) h = ((h ^ widened(c)) * 16777619u) % 0x100000000u;
  return static_cast<uint32_t>(h);
}

uint32_t naiveOneAtATime(const std::string& s) {
  constexpr uint64_t kModulus = 0x100000000u;
  uint64_t h = 0;
  for (const char c : s) {
    h = (h + widened(c)) % kModulus;
    h = (h + h * 1024) % kModulus;
    h ^= h / 64;
  }
  h = (h + h * 8) % kModulus;
  h ^= h / 2048;
  return static_cast<uint32_t>((h + h * 32768) % kModulus);
}

uint16_t naiveChecksum(const std::vector<uint16_t>& words) {
  long sum = 0;
  for (const uint16_t w : words) sum += w >= 0x8000 ? w - 0x8000 : -static_cast<long>(w);
  return static_cast<uint16_t>(((sum % 0x10000) + 0x10000) % 0x10000);
}

uint32_t hashOf(const std::string& s) {
  return Util::hash(s.data(), static_cast<unsigned>(s.size()));
}

uint16_t checksumOf(const std::vector<uint16_t>& words) {
  return Util::ipChecksumRange(words.data(), words.data() + words.size());
}

TEST(StringHashTest, IsTextbookFnvBelow0x80) {
  EXPECT_EQ(Util::hash(std::string()), 0x811c9dc5u);
  EXPECT_EQ(Util::hash(std::string("a")), 0xe40c292cu);
  EXPECT_EQ(Util::hash(std::string("foobar")), 0xbf9cf968u);
}

TEST(StringHashTest, TakesBytesFrom0x80AsNegative) {
  EXPECT_EQ(Util::hash(std::string("\xff")), 0xf9f3a14eu);
  EXPECT_EQ(Util::hash(std::string("\x80")), 0x04f3b29fu);
  EXPECT_EQ(Util::hash(std::string("\xe9t\xe9")), 0xfb67177bu);
}

TEST(StringHashTest, ContinuesPastAZeroByte) {
  EXPECT_EQ(Util::hash(std::string("\0", 1)), 0x050c5d1fu);
  EXPECT_EQ(Util::hash(std::string("a\0b", 3)), 0x10f3abd2u);
}

TEST(StringHashTest, EqualsTheNaiveComputationForEveryLength) {
  for (unsigned length = 0; length <= kMaxLength; ++length) {
    const std::string s = randomBytes(length, length + 1);
    ASSERT_EQ(Util::hash(s), naiveFnv(s)) << "length " << length;
  }
}

TEST(StringHashTest, EqualsTheNaiveComputationForEveryByte) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string s(1, static_cast<char>(byte));
    ASSERT_EQ(Util::hash(s), naiveFnv(s)) << "byte " << byte;
    ASSERT_EQ(hashOf(s), naiveOneAtATime(s)) << "byte " << byte;
  }
}

TEST(PointerHashTest, IsJenkinsOneAtATimeBelow0x80) {
  EXPECT_EQ(hashOf("a"), 0xca2e9442u);
  EXPECT_EQ(hashOf("foobar"), 0xf952fde7u);
  EXPECT_EQ(hashOf("The quick brown fox jumps over the lazy dog"), 0x519e91f5u);
}

TEST(PointerHashTest, IsZeroForNothing) {
  EXPECT_EQ(Util::hash("", 0u), 0u);
  EXPECT_EQ(Util::hash(nullptr, 0u), 0u);
}

TEST(PointerHashTest, TakesBytesFrom0x80AsNegative) {
  EXPECT_EQ(hashOf("\xff"), 0xae65a494u);
  EXPECT_EQ(hashOf("\x80"), 0xc31d4e27u);
  EXPECT_EQ(hashOf("\xe9t\xe9"), 0x8c711b75u);
}

TEST(PointerHashTest, ReadsExactlyTheBytesItIsGiven) {
  EXPECT_EQ(hashOf(std::string("a\0b", 3)), 0x5b21e716u);
  EXPECT_EQ(Util::hash("ab", 1u), Util::hash("ax", 1u));
  for (unsigned length = 1; length < 20; ++length) {  // right up to the end of an allocation
    const std::unique_ptr<char[]> bytes(new char[length]);
    std::memset(bytes.get(), 0x95, length);
    EXPECT_EQ(Util::hash(bytes.get(), length), naiveOneAtATime(std::string(length, '\x95')));
  }
}

TEST(PointerHashTest, EqualsTheNaiveComputationForEveryLength) {
  for (unsigned length = 0; length <= kMaxLength; ++length) {
    const std::string s = randomBytes(length, 1000 + length);
    ASSERT_EQ(hashOf(s), naiveOneAtATime(s)) << "length " << length;
  }
}

TEST(PointerHashTest, DoesNotDependOnAlignment) {
  const std::string s = randomBytes(61, 7);
  for (unsigned offset = 0; offset < 16; ++offset) {
    const std::string shifted = std::string(offset, 'x') + s;
    EXPECT_EQ(Util::hash(shifted.data() + offset, 61u), naiveOneAtATime(s)) << offset;
  }
}

TEST(ChecksumTest, AddsWordsWithTheTopBitAndSubtractsAllOthers) {
  EXPECT_EQ(checksumOf({}), 0);
  EXPECT_EQ(checksumOf({0x8001, 0x0001}), 0);
  EXPECT_EQ(checksumOf({0x0001}), 0xffff);
  EXPECT_EQ(checksumOf({0x8000}), 0);
  EXPECT_EQ(checksumOf({0x0000}), 0);
  EXPECT_EQ(checksumOf({0xffff}), 0x7fff);
  EXPECT_EQ(checksumOf({0x7fff}), 0x8001);
  EXPECT_EQ(checksumOf({0x8005}), 5);
}

TEST(ChecksumTest, DropsCarries) {
  EXPECT_EQ(checksumOf({0xffff, 0xffff, 0xffff}), 0x7ffd);
  EXPECT_EQ(checksumOf({0x7fff, 0x7fff, 0x0003}), 0xffff);
  EXPECT_EQ(Util::ipChecksumRange(nullptr, nullptr), 0);
}

TEST(ChecksumTest, EqualsTheNaiveSumForEveryWord) {
  for (uint32_t word = 0; word <= 0xffff; ++word) {
    const std::vector<uint16_t> words = {static_cast<uint16_t>(word)};
    ASSERT_EQ(checksumOf(words), naiveChecksum(words)) << word;
  }
}

TEST(ChecksumTest, EqualsTheNaiveSumForEveryLengthAndStart) {
  std::mt19937 random(42);
  for (size_t length = 0; length <= kMaxLength; ++length) {
    for (size_t start = 0; start < 8; ++start) {
      std::vector<uint16_t> words(start + length);
      for (uint16_t& word : words) word = static_cast<uint16_t>(random());
      const uint16_t* const begin = words.data() + start;
      ASSERT_EQ(Util::ipChecksumRange(begin, begin + length),
                naiveChecksum({begin, begin + length}))
          << "length " << length << " start " << start;
    }
  }
}

TEST(ChecksumTest, EqualsTheNaiveSumOverAWholePage) {
  std::mt19937 random(43);
  std::vector<uint16_t> words(100000);
  for (uint16_t& word : words) word = static_cast<uint16_t>(random());
  EXPECT_EQ(checksumOf(words), naiveChecksum(words));
}

uint64_t magicOf(const char (&tag)[9]) {
  uint64_t magic = 0;
  std::memcpy(&magic, tag, sizeof magic);
  return magic;
}

// The number whose bytes lie in memory as those of `value` do with the lowest one first.
uint64_t lowestFirst(uint64_t value) {
  unsigned char bytes[sizeof value];
  for (unsigned char& byte : bytes) {
    byte = static_cast<unsigned char>(value & 0xff);
    value >>= 8;
  }
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

TEST(MagicTest, PrintsTheTagItWasMadeOf) {
  EXPECT_EQ(Util::decodeMagic(magicOf("ZRBslots")), "ZRBslots");
  EXPECT_EQ(Util::decodeMagic(lowestFirst(0x6867666564636261)), "abcdefgh");
  EXPECT_EQ(Util::decodeMagic(0xffffffffffffffff), "\xff\xff\xff\xff\xff\xff\xff\xff");
}

TEST(MagicTest, EndsBeforeTheFirstZeroByte) {
  EXPECT_EQ(Util::decodeMagic(0), "");
  EXPECT_EQ(Util::decodeMagic(lowestFirst(0x6867666564636200)), "");
  EXPECT_EQ(Util::decodeMagic(lowestFirst(0x6867666500636261)), "abc");
  EXPECT_EQ(Util::decodeMagic(lowestFirst(0x0000000000000061)), "a");
}

TEST(FenixCodecTest, PacksTheHighHalfAboveTheLow) {
  uint32_t fenix = 0xdeadbeef;
  Util::encodeFenix(0x1234, 0xabcd, fenix);
  EXPECT_EQ(fenix, 0xabcd1234u);
  Util::encodeFenix(0xffff, 0, fenix);
  EXPECT_EQ(fenix, 0x0000ffffu);
  Util::encodeFenix(0, 0xffff, fenix);
  EXPECT_EQ(fenix, 0xffff0000u);
}

TEST(FenixCodecTest, GivesBackWhatWasPacked) {
  std::mt19937 random(5);
  for (int i = 0; i < 1000; ++i) {
    const auto a = static_cast<uint16_t>(random());
    const auto b = static_cast<uint16_t>(random());
    uint32_t fenix = 0;
    uint16_t low = 0;
    uint16_t high = 0;
    Util::encodeFenix(a, b, fenix);
    Util::decodeFenix(fenix, low, high);
    ASSERT_EQ(low, a);
    ASSERT_EQ(high, b);
  }
}

TEST(DemangleTest, MakesMangledNamesReadable) {
  EXPECT_EQ(Util::demangleName(typeid(std::pair<int, char>).name()), "std::pair<int, char>");
  EXPECT_EQ(Util::demangleName("_ZN5Zorbe4Util11decodeFenixEjRtS1_"),
            "Zorbe::Util::decodeFenix(unsigned int, unsigned short&, unsigned short&)");
}

TEST(DemangleTest, ReturnsWhatIsNotMangledUnchanged) {
  EXPECT_EQ(Util::demangleName("not mangled"), "not mangled");
  EXPECT_EQ(Util::demangleName("_Znonsense("), "_Znonsense(");
  EXPECT_EQ(Util::demangleName(""), "");
}

TEST(DemangleTest, NullHasAnEmptyName) {
  EXPECT_EQ(Util::demangleName(nullptr), "");
}

}  // namespace
}  // namespace Zorbe::Test
