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

// Magnitudes and signs, four registers a turn so that no addition waits for the one before.
[[gnu::target("avx2")]] uint16_t avx2Checksum(const uint16_t* begin, const uint16_t* end) {
  __m256i magnitudes[4] = {};
  __m256i signs[4] = {};
  for (; end - begin >= 64; begin += 64) {
    for (int each = 0; each < 4; ++each) {
      const __m256i words = load(begin + 16 * each);
      magnitudes[each] = _mm256_add_epi16(magnitudes[each], _mm256_abs_epi16(words));
      signs[each] = _mm256_xor_si256(signs[each], words);
    }
  }
  for (; end - begin >= 16; begin += 16) {
    const __m256i words = load(begin);
    magnitudes[0] = _mm256_add_epi16(magnitudes[0], _mm256_abs_epi16(words));
    signs[0] = _mm256_xor_si256(signs[0], words);
  }
  for (int each = 1; each < 4; ++each) {
    magnitudes[0] = _mm256_add_epi16(magnitudes[0], magnitudes[each]);
    signs[0] = _mm256_xor_si256(signs[0], signs[each]);
  }
  const int vectors = oddSigns(signs[0]) - addUp(magnitudes[0]);
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
