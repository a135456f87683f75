// SPDX-License-Identifier: MIT
//
// operator new of the whole test program, the libraries included: counts the blocks that are
// allocated, and fails on request. What is allocated under a Fault::Bypass neither counts nor
// fails: it is the test's own.
#pragma once

#include <cstddef>

namespace Zorbe::Test::Memory {

/// How many allocations fail.
enum class Failing { kOnce, kAlways };

/// The `nth` allocation from now on throws std::bad_alloc, and with `kAlways` so do all later
/// ones.
void fail(unsigned long nth, Failing which);

/// No allocation fails from now on. Returns how many have.
unsigned long stopFailing();

/// From now on each allocation leaves `error` in errno, as malloc(3) may; 0: none does.
void leaveErrno(int error);

/// The blocks that are allocated and not freed.
long blocks();

}  // namespace Zorbe::Test::Memory
