// SPDX-License-Identifier: MIT
#include "memory/index_memory.h"

namespace Zorbe::Table {

std::optional<bool> IndexMemory::insert(Hash hash, uint32_t slot) const {
  uint64_t bucket = Detail::homeLine(hash, groups_) * kGroup;
  for (uint64_t step = 0; step < buckets(); ++step) {
    const uint64_t entry = relaxed(entries_[bucket]);
    if (entry == kEmptyBucket || entry == kTombstone) {
      release(entries_[bucket], Detail::entryOf(hash, slot));
      return entry == kTombstone;
    }
    if (++bucket == buckets()) bucket = 0;
  }
  return std::nullopt;
}

bool IndexMemory::entomb(Hash hash, uint32_t slot) const {
  return probe(hash, [&](uint64_t bucket, uint32_t found) {
    if (found != slot) return false;
    release(entries_[bucket], kTombstone);
    return true;
  });
}

}  // namespace Zorbe::Table
