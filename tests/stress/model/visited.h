// SPDX-License-Identifier: MIT
//
// States that were seen, by their hashes of 64 bits.
#pragma once

#include <cstdint>
#include <vector>

namespace Zorbe::Model {

inline uint64_t mix(uint64_t hash, uint64_t value) {
  hash ^= value + 0x9e3779b97f4a7c15ULL + (hash << 6) + (hash >> 2);
  hash ^= hash >> 32;
  hash *= 0xd6e8feb86659fd93ULL;
  hash ^= hash >> 32;
  return hash;
}

class Visited {
 public:
  Visited() : table_(kFirst, 0), used_() {}

  /// False when it was there.
  bool insert(uint64_t hash) {
    hash = nonZero(hash);
    const size_t place = find(hash);
    if (table_[place] == hash) return false;
    table_[place] = hash;
    used_.push_back(hash);
    if (used_.size() * 2 > table_.size()) enlarge();
    return true;
  }

  size_t size() const { return used_.size(); }

 private:
  static constexpr size_t kFirst = 1 << 12;

  static uint64_t nonZero(uint64_t hash) { return hash == 0 ? 1 : hash; }

  size_t find(uint64_t hash) const {
    size_t place = hash & (table_.size() - 1);
    while (table_[place] != 0 && table_[place] != hash) place = (place + 1) & (table_.size() - 1);
    return place;
  }

  void enlarge() {
    table_.assign(table_.size() * 2, 0);
    for (const uint64_t hash : used_) table_[find(hash)] = hash;
  }

  std::vector<uint64_t> table_;
  std::vector<uint64_t> used_;
};

}  // namespace Zorbe::Model
