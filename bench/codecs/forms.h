// SPDX-License-Identifier: MIT
//
// What the checksum is compared with: the plain loop, and a loop with vector instructions written
// by hand for this processor.
#pragma once

#include <cstdint>

namespace Bench {

uint16_t naiveChecksum(const uint16_t* begin, const uint16_t* end);

/// Null where this processor has no form of its own.
using Checksum = uint16_t (*)(const uint16_t*, const uint16_t*);
Checksum handVectorisedChecksum();

}  // namespace Bench
