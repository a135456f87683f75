// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "memory/layout.h"

namespace Zorbe::Table {

using Detail::Hash;

/// The memory of `buckets`: lines of eight entries. A key's entry is in the first line from its
/// home on that had room when it was entered, so a search ends at a line with an empty bucket.
/// Within a generation no entry moves; one that is not needed any more becomes a tombstone, and
/// no bucket becomes empty again.
class IndexMemory {
 public:
  static constexpr uint64_t kGroup = Detail::kLineEntries;

  IndexMemory() = default;
  IndexMemory(char* base, uint64_t buckets, uint64_t seed)
      : entries_(reinterpret_cast<Word*>(base + kIndexEntries)),
        groups_(buckets / kGroup),
        seed_(seed) {}

  /// How many buckets an index for `slots` slots gets, a multiple of a line: three of four are
  /// used then.
  static uint64_t bucketsFor(uint64_t slots) {
    return (slots + slots / 3 + kGroup) / kGroup * kGroup;
  }
  static uint64_t fileBytes(uint64_t buckets) { return kIndexEntries + 8 * buckets; }

  uint64_t buckets() const { return groups_ * kGroup; }
  Hash hash(const uint64_t* key, uint32_t words) const { return Detail::hashOf(key, words, seed_); }
  Word& entry(uint64_t bucket) const { return entries_[bucket]; }

  /// Calls `visit(bucket, slot)` for each entry with the hash's tag, until it returns true, or
  /// a line with an empty bucket, or all were seen. Returns whether a visit returned true.
  ///
  /// A line is looked at as a whole: which of its entries matches is no branch to be guessed.
  template <class Visit>
  bool probe(Hash hash, Visit visit) const {
    uint64_t group = Detail::homeLine(hash, groups_);
    for (uint64_t step = 0; step < groups_; ++step) {
      const Word* line = entries_ + group * kGroup;
      uint32_t slots[kGroup];  // their numbers plus one
      uint32_t matches = 0;
      uint32_t empty = 0;
      for (uint32_t i = 0; i < kGroup; ++i) {
        const uint64_t entry = acquire(line[i]);
        slots[i] = static_cast<uint32_t>(entry);
        matches |= static_cast<uint32_t>((entry >> 32) == hash.tag) << i;
        empty |= static_cast<uint32_t>(entry == kEmptyBucket) << i;
      }
      for (; matches != 0; matches &= matches - 1) {
        const auto i = static_cast<uint32_t>(__builtin_ctz(matches));
        if (slots[i] != 0 && visit(group * kGroup + i, slots[i] - 1)) return true;
      }
      if (empty != 0) return false;
      if (++group == groups_) group = 0;
    }
    return false;
  }

  /// A reader: probe(), whose visit is `examine(slot)`. An entry that the writer took away during
  /// its examination leads to another search: the slot then holds another key, whose own entry
  /// is not there yet, and a key that was found once must not be missing in the next search.
  template <class Examine>
  bool find(Hash hash, Examine examine) const {
    bool moved = true;
    for (int attempt = 0; moved && attempt < kFindAttempts; ++attempt) {
      moved = false;
      const bool found = probe(hash, [&](uint64_t bucket, uint32_t slot) {
        if (!examine(slot)) return false;
        moved = relaxed(entries_[bucket]) != Detail::entryOf(hash, slot);
        return true;
      });
      if (!found) return false;
    }
    return true;
  }

  /// What a window shows of it.
  void describe(Detail::Window& window) const {
    window.entries = entries_;
    window.lines = groups_;
    window.seed = seed_;
  }

  /// The writer: enters a slot under a key that has no entry, at the first bucket that is empty
  /// or a tombstone. Returns whether it was a tombstone; nothing when no bucket is left.
  std::optional<bool> insert(Hash hash, uint32_t slot) const;

  /// The writer: makes the entry of a slot a tombstone. Returns whether there was one.
  bool entomb(Hash hash, uint32_t slot) const;

 private:
  // Every further attempt needs another change of the same bucket.
  static constexpr int kFindAttempts = 64;

  Word* entries_ = nullptr;
  uint64_t groups_ = 0;
  uint64_t seed_ = 0;
};

}  // namespace Zorbe::Table
