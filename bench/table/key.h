// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Bench {

/// The key of a record, by its number from 0 on.
inline uint64_t keyOf(uint64_t number) {
  return number * 0x9e3779b97f4a7c15u;
}

}  // namespace Bench
