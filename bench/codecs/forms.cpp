// SPDX-License-Identifier: MIT
#include "codecs/forms.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace Bench {

uint16_t naiveChecksum(const uint16_t* begin, const uint16_t* end) {
  uint16_t sum = 0;
  for (; begin != end; ++begin) {
    const int word = *begin;
    sum = static_cast<uint16_t>((word & 0x8000) != 0 ? sum + (word & 0x7fff) : sum - word);
  }
  return sum;
}

#if defined(__x86_64__)

namespace {

[[gnu::target("avx2")]] __m256i load(const uint16_t* words) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words));
}

[[gnu::target("avx2")]] uint16_t addUp(__m256i lanes) {
  const __m256i pairs = _mm256_madd_epi16(lanes, _mm256_set1_epi16(1));
  __m128i sums = _mm_add_epi32(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
  sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, _MM_SHUFFLE(1, 0, 3, 2)));
  sums = _mm_add_epi32(sums, _mm_shuffle_epi32(sums, _MM_SHUFFLE(2, 3, 0, 1)));
  return static_cast<uint16_t>(_mm_cvtsi128_si32(sums));
}

// 0x8000 when the number of set top bits is odd.
[[gnu::target("avx2")]] uint16_t oddSigns(__m256i lanes) {
  const auto topBits = static_cast<unsigned>(_mm256_movemask_epi8(lanes)) & 0xaaaaaaaa;
  return static_cast<uint16_t>(__builtin_parity(topBits) << 15);
}

struct Sums {
  __m256i magnitudes;
  __m256i signs;
};

[[gnu::target("avx2")]] void add(Sums& sums, __m256i words) {
  sums.magnitudes = _mm256_add_epi16(sums.magnitudes, _mm256_abs_epi16(words));
  sums.signs = _mm256_xor_si256(sums.signs, words);
}

// Four registers a turn, so that no addition waits for the one before.
[[gnu::target("avx2")]] const uint16_t* addFours(Sums& sums, const uint16_t* begin,
                                                 const uint16_t* end) {
  Sums parts[4] = {};
  for (; end - begin >= 64; begin += 64) {
    for (int each = 0; each < 4; ++each) add(parts[each], load(begin + 16 * each));
  }
  for (const Sums& part : parts) {
    sums.magnitudes = _mm256_add_epi16(sums.magnitudes, part.magnitudes);
    sums.signs = _mm256_xor_si256(sums.signs, part.signs);
  }
  return begin;
}

[[gnu::target("avx2")]] uint16_t avx2Checksum(const uint16_t* begin, const uint16_t* end) {
  Sums sums{_mm256_setzero_si256(), _mm256_setzero_si256()};
  if (end - begin >= 64) begin = addFours(sums, begin, end);
  for (; end - begin >= 16; begin += 16) add(sums, load(begin));
  const int vectors = oddSigns(sums.signs) - addUp(sums.magnitudes);
  return static_cast<uint16_t>(vectors + naiveChecksum(begin, end));
}

}  // namespace

Checksum handVectorisedChecksum() {
  return __builtin_cpu_supports("avx2") ? avx2Checksum : nullptr;
}

#else

Checksum handVectorisedChecksum() {
  return nullptr;
}

#endif

}  // namespace Bench
