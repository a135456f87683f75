// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/options.h>

#include <cstdint>

namespace Zorbe::Table {

/// The word of the header that says where the records come from, and since when: a time in
/// nanoseconds above two bits, so that both change at once.
struct OriginWord {
  static uint64_t pack(Origin origin, uint64_t since) {
    return since << 2 | static_cast<uint64_t>(origin);
  }
  static Origin origin(uint64_t word) {
    const uint64_t bits = word & 3;
    return bits > static_cast<uint64_t>(Origin::mirroredLost) ? Origin::local
                                                              : static_cast<Origin>(bits);
  }
  static int64_t since(uint64_t word) { return static_cast<int64_t>(word >> 2); }
};

}  // namespace Zorbe::Table
