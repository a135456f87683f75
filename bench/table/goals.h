// SPDX-License-Identifier: MIT
//
// What the table is to reach. The ratios are those of the others to the table.
#pragma once

#include <cstdint>
#include <string>

namespace Bench {

/// At most 1.2 of the floor, at least as fast as a map of the process's own, and as LMDB: twice
/// as fast where its tree is small enough for the caches or much larger than they are.
inline std::string getGoal(const std::string& name, uint64_t records) {
  if (name == "floor") return ">= 0.833";
  if (name == "std::unordered_map") return ">= 1";
  if (name == "LMDB") return records == 128'000 ? ">= 1" : ">= 2";
  return "";
}

inline std::string putGoal(const std::string& name) {
  return name == "LMDB" ? ">= 3" : "";
}

/// Key, value and 24 bytes, rounded up to 64; and 16 for index and log.
inline std::string memoryGoal() {
  return "<= " + std::to_string((8 + 48 + 24 + 63) / 64 * 64 + 16);
}

}  // namespace Bench
