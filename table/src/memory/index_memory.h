// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "memory/hash.h"
#include "memory/layout.h"

namespace Zorbe::Table {

/// The memory of `buckets`: open addressing with linear probing. Within a generation no entry
/// moves; an entry that is not needed any more becomes a tombstone.
class IndexMemory {
 public:
  IndexMemory() = default;
  IndexMemory(char* base, uint64_t buckets, uint64_t seed)
      : entries_(reinterpret_cast<Word*>(base + kIndexEntries)), buckets_(buckets), seed_(seed) {}

  /// How many buckets an index for `slots` slots gets: three of four are used then.
  static uint64_t bucketsFor(uint64_t slots) { return slots + slots / 3 + 8; }
  static uint64_t fileBytes(uint64_t buckets) { return kIndexEntries + 8 * buckets; }

  uint64_t buckets() const { return buckets_; }
  Hash hash(const uint64_t* key, uint32_t words) const { return hashOf(key, words, seed_); }
  Word& entry(uint64_t bucket) const { return entries_[bucket]; }

  /// Calls `visit(bucket, slot)` for each entry with the hash's tag, until it returns true, or
  /// an empty bucket, or all were seen. Returns whether a visit returned true.
  template <class Visit>
  bool probe(Hash hash, Visit visit) const {
    uint64_t bucket = home(hash);
    for (uint64_t step = 0; step < buckets_; ++step) {
      const uint64_t entry = acquire(entries_[bucket]);
      if (entry == kEmptyBucket) return false;
      const auto slotPlusOne = static_cast<uint32_t>(entry);
      const bool matches = (entry >> 32) == hash.tag && slotPlusOne != 0;
      if (matches && visit(bucket, slotPlusOne - 1)) return true;
      if (++bucket == buckets_) bucket = 0;
    }
    return false;
  }

  /// The writer: enters a slot under a key that has no entry, at the first bucket that is empty
  /// or a tombstone. Returns whether it was a tombstone; nothing when no bucket is left.
  std::optional<bool> insert(Hash hash, uint32_t slot) const;

  /// The writer: makes the entry of a slot a tombstone. Returns whether there was one.
  bool entomb(Hash hash, uint32_t slot) const;

 private:
  uint64_t home(Hash hash) const { return (uint64_t{hash.home} * buckets_) >> 32; }

  Word* entries_ = nullptr;
  uint64_t buckets_ = 0;
  uint64_t seed_ = 0;
};

}  // namespace Zorbe::Table
