// SPDX-License-Identifier: MIT
//
// What the checksum is measured beside: the loop as one would write it down, and the best
// that vector instructions, written by hand, can do on this processor.
#pragma once

#include <cstdint>

namespace Bench {

uint16_t naiveChecksum(const uint16_t* begin, const uint16_t* end);

/// Null where this processor has no form of its own.
using Checksum = uint16_t (*)(const uint16_t*, const uint16_t*);
Checksum handVectorisedChecksum();

}  // namespace Bench
