// SPDX-License-Identifier: MIT
#pragma once

namespace Bench {

/// How often this process has asked for heap memory so far, by new or by malloc. Counts only
/// in programs that are linked with allocations.cpp.
long allocations();

/// How often it has released heap memory, by delete or by free.
long releases();

/// False where the allocator cannot be watched, under sanitizers.
bool countsAllocations();

}  // namespace Bench
