// SPDX-License-Identifier: MIT
//
// What View compiles into the program that reads: the search for a key in memory that the library
// has mapped, with the sizes of key and value known. Programs use View.
//
// The library has the same search for every case (a key that is not there, a table that was
// replaced or has grown, a store that is going on, memory that contradicts itself). Here is the
// common one: anything else is kMiss, which says that the library has to look.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#define ZORBE_TABLE_SCALAR
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZORBE_TABLE_SCALAR
#endif
#endif
#if defined(__SSE2__) && !defined(ZORBE_TABLE_SCALAR)
#include <emmintrin.h>
#define ZORBE_TABLE_SSE2
#endif
#undef ZORBE_TABLE_SCALAR

namespace Zorbe::Table::Detail {

/// A word of shared memory.
using Word = std::atomic<uint64_t>;

inline uint64_t acquire(const Word& word) {
  return word.load(std::memory_order_acquire);
}
inline uint64_t relaxed(const Word& word) {
  return word.load(std::memory_order_relaxed);
}

/// Where the search for a key begins, and by which mark its entry is recognised.
struct Hash {
  uint32_t home;
  uint32_t tag;
};

/// Of a key's words. Stored in files: never changes within a version of the format. The seed
/// differs between indexes, so that keys cannot be chosen to have the same home.
inline Hash hashOf(const uint64_t* words, uint32_t count, uint64_t seed) {
  uint64_t hash = seed ^ 0x9e3779b97f4a7c15u;
  for (uint32_t i = 0; i < count; ++i) {
    hash = (hash ^ words[i]) * 0xff51afd7ed558ccdu;
    hash ^= hash >> 32;
  }
  hash = (hash ^ (hash >> 29)) * 0xc4ceb9fe1a85ec53u;
  hash ^= hash >> 32;
  return {static_cast<uint32_t>(hash >> 32), static_cast<uint32_t>(hash)};
}

/// The index: lines of eight entries, an entry being the hash's tag above the slot's number plus
/// one. Which line a search begins at.
inline constexpr uint32_t kLineEntries = 8;
inline uint64_t homeLine(Hash hash, uint64_t lines) {
  return (uint64_t{hash.home} * lines) >> 32;
}
inline uint64_t entryOf(Hash hash, uint32_t slot) {
  return uint64_t{hash.tag} << 32 | (slot + 1);
}

/// The words of a slot, in this order; the value's follow the key's.
enum SlotWord : size_t { kGuardWord, kStateWord, kSequenceWord, kKeyWord };

/// What a slot holds. A slot that was never used has only zero words.
enum SlotState : uint64_t { kFree = 0, kLive = 1, kErased = 2 };

/// A bit (SSE2: two) for each entry of a line that may have this tag. Only says which entries are
/// worth loading: with SSE2 these are no atomic loads.
#ifdef ZORBE_TABLE_SSE2
inline constexpr uint32_t kBitsOfEntry = 2;
inline uint32_t candidatesOf(const Word* line, uint32_t tag) {
  const auto* from = reinterpret_cast<const __m128i*>(line);
  const auto tags = [](__m128i low, __m128i high) {  // the upper half of each of four entries
    return _mm_castps_si128(
        _mm_shuffle_ps(_mm_castsi128_ps(low), _mm_castsi128_ps(high), _MM_SHUFFLE(3, 1, 3, 1)));
  };
  const __m128i wanted = _mm_set1_epi32(static_cast<int>(tag));
  const __m128i first = tags(_mm_load_si128(from), _mm_load_si128(from + 1));
  const __m128i second = tags(_mm_load_si128(from + 2), _mm_load_si128(from + 3));
  return static_cast<uint32_t>(_mm_movemask_epi8(
      _mm_packs_epi32(_mm_cmpeq_epi32(first, wanted), _mm_cmpeq_epi32(second, wanted))));
}
#else
inline constexpr uint32_t kBitsOfEntry = 1;
inline uint32_t candidatesOf(const Word* line, uint32_t tag) {
  uint32_t candidates = 0;
  for (uint32_t i = 0; i < kLineEntries; ++i) {
    candidates |= static_cast<uint32_t>((relaxed(line[i]) >> 32) == tag) << i;
  }
  return candidates;
}
#endif

/// What a view has mapped. The library fills it in after each of its calls, and empties it before
/// it unmaps anything; all sizes have been validated.
struct Window {
  /// Of this header. The library and the programs that it serves may come from different
  /// versions: a program that knows another layout calls the library for everything.
  static constexpr uint64_t kLayout = 1;

  static constexpr uint64_t shapeOf(uint32_t keyWords, uint32_t valueBytes) {
    return kLayout << 48 | uint64_t{keyWords} << 32 | valueBytes;
  }

  uint64_t shape = 0;  // of the records, and the layout; 0: nothing is mapped
  const std::atomic<uint64_t>* version = nullptr;  // rises when another table is to be mapped
  uint64_t mappedVersion = 0;
  const Word* entries = nullptr;
  uint64_t lines = 0;
  uint64_t seed = 0;
  const char* slots = nullptr;
  size_t slotBytes = 0;
  uint64_t capacity = 0;
  uint64_t incarnation = 0;
  uint64_t calls = 0;  // how often the library had to look: for tests and measurements
};

/// For Glance: values have as many bytes as the window says.
inline constexpr uint32_t kValueOfWindow = ~uint32_t{0};

/// Looks through a window for records of `keyWords` and `valueBytes`. Inline, so that a processor
/// begins the next search while it waits for the memory of this one.
template <uint32_t keyWords, uint32_t valueBytes>
class Glance {
 public:
  static constexpr uint64_t kMiss = ~uint64_t{0};
  using Key = std::array<uint64_t, keyWords>;  // by value: kept in registers

  explicit Glance(const Window& window) : window_(window) {}

  /// The slot of a key's record, whose value is copied unless `value` is null; kMiss when the
  /// library has to look. The copy is valid only if a slot is returned.
  [[gnu::always_inline]] uint64_t find(Key key, void* value) const {
    if (!isCurrent()) return kMiss;
    const Hash hash = hashOf(key.data(), keyWords, window_.seed);
    uint64_t line = homeLine(hash, window_.lines);
    for (int step = 0; step < kMaxLines; ++step) {
      const Word* entries = window_.entries + line * kLineEntries;
      if (const uint32_t candidates = candidatesOf(entries, hash.tag); candidates != 0) {
        const auto bit = static_cast<uint32_t>(__builtin_ctz(candidates));
        return examine(entries[bit / kBitsOfEntry], hash, key, value);
      }
      if (relaxed(entries[kLineEntries - 1]) == 0) return kMiss;  // a line fills from its start
      if (++line == window_.lines) line = 0;
    }
    return kMiss;
  }

  /// The same with the slot that is known from an earlier search.
  [[gnu::always_inline]] bool read(uint64_t incarnation, uint32_t slot, Key key,
                                   void* value) const {
    return isCurrent() && incarnation == window_.incarnation && slot < window_.capacity &&
           copy(slot, key, value);
  }

 private:
  static constexpr int kMaxLines = 4;      // in a full table one key of a thousand is beyond
  static constexpr size_t kUnrolled = 32;  // words of a value

  // Those of the window, if it is of this layout and these keys.
  uint32_t wantedBytes() const {
    return valueBytes == kValueOfWindow ? static_cast<uint32_t>(window_.shape) : valueBytes;
  }

  bool isCurrent() const {
    return window_.shape == Window::shapeOf(keyWords, wantedBytes()) &&
           relaxed(*window_.version) == window_.mappedVersion;
  }

  // An entry that changed meanwhile: the slot may have got another key, whose own entry is not
  // there yet.
  [[gnu::always_inline]] uint64_t examine(const Word& bucket, Hash hash, const Key& key,
                                          void* value) const {
    const uint64_t entry = acquire(bucket);
    const auto slot = static_cast<uint32_t>(entry) - 1;
    if (entry != entryOf(hash, slot) || slot >= window_.capacity) return kMiss;
    if (!copy(slot, key, value) || relaxed(bucket) != entry) return kMiss;
    return slot;
  }

  // Acquire on each word: the second look at the guard then sees the odd one of the store that
  // the word came from.
  [[gnu::always_inline]] bool copy(uint32_t slot, const Key& key, void* value) const {
    const auto* words =
        reinterpret_cast<const Word*>(window_.slots + size_t{slot} * window_.slotBytes);
    const uint64_t guard = acquire(words[kGuardWord]);
    uint64_t other = (guard & 1) | (acquire(words[kStateWord]) ^ kLive);
    for (uint32_t i = 0; i < keyWords; ++i) other |= acquire(words[kKeyWord + i]) ^ key[i];
    if (value != nullptr) {
      const Word* from = words + kKeyWord + keyWords;
      if constexpr (valueBytes == kValueOfWindow) {
        copyBytes(from, static_cast<char*>(value), wantedBytes());
      } else {
        copyValue(from, static_cast<char*>(value));
      }
    }
    return (other | (relaxed(words[kGuardWord]) ^ guard)) == 0;
  }

  static void copyValue(const Word* from, char* to) {
    constexpr size_t kWords = valueBytes / 8;
    if constexpr (kWords <= kUnrolled) {
      copyWords(from, to, std::make_index_sequence<kWords>());
    } else {
      for (size_t i = 0; i < kWords; ++i) copyWord(from[i], to + 8 * i);
    }
    if constexpr (valueBytes % 8 != 0) {
      const uint64_t word = acquire(from[valueBytes / 8]);
      std::memcpy(to + size_t{valueBytes} / 8 * 8, &word, valueBytes % 8);
    }
  }

  static void copyBytes(const Word* from, char* to, size_t bytes) {
    for (; bytes >= 8; bytes -= 8, to += 8) copyWord(*from++, to);
    if (bytes == 0) return;
    const uint64_t word = acquire(*from);
    std::memcpy(to, &word, bytes);
  }

  static void copyWord(const Word& from, char* to) {
    const uint64_t word = acquire(from);
    std::memcpy(to, &word, 8);
  }

  template <size_t... index>
  static void copyWords(const Word* from, char* to, std::index_sequence<index...>) {
    (copyWord(from[index], to + 8 * index), ...);
  }

  const Window& window_;
};

#undef ZORBE_TABLE_SSE2

}  // namespace Zorbe::Table::Detail
