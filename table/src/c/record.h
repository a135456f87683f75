// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#include "c/handle.h"

namespace Zorbe::Table {

/// Throws Error (usage): a key of `size` bytes cannot be one of the table.
[[noreturn]] void failKey(const TableHandle& handle, const void* key, size_t size);
/// As above, for a value.
[[noreturn]] void failValue(const TableHandle& handle, const void* value, size_t size);

/// The key as the table's core takes it. False for a text that is longer than the keys.
inline bool encodeKey(const TableHandle& handle, const void* key, size_t size, uint64_t* words) {
  if (key == nullptr) {
    if (size != 0) failKey(handle, key, size);
    key = "";
  }
  const Shape::Fit fit = handle.shape->encode(key, size, words);
  if (fit == Shape::Fit::kWrongSize) failKey(handle, key, size);
  return fit == Shape::Fit::kFits;
}

inline void checkValue(const TableHandle& handle, const void* value, size_t size) {
  if (size != handle.shape->valueBytes() || (value == nullptr && size != 0)) {
    failValue(handle, value, size);
  }
}

}  // namespace Zorbe::Table
