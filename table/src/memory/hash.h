// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Zorbe::Table {

/// Where the search for a key begins, and by which mark its entry is recognised.
struct Hash {
  uint32_t home;
  uint32_t tag;
};

/// Of a key's words. Stored in files: never changes within a version of the format. The seed
/// differs between indexes, so that nobody can choose keys that all begin in one place.
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

}  // namespace Zorbe::Table
