// SPDX-License-Identifier: MIT
//
// operator new of the whole test program, the libraries included: counts what is alive and
// fails when it is told to. What is allocated under a Fault::Bypass does not fail and does not
// count: it is the test's own.
#pragma once

#include <cstddef>

namespace Zorbe::Test::Sweep::Memory {

/// How many allocations fail.
enum class Lack { once, lasting };

/// The `nth` allocation from now on throws std::bad_alloc and, when it lasts, so do all
/// later ones.
void fail(unsigned long nth, Lack lack);

/// No allocation fails from now on. Returns how many have.
unsigned long stopFailing();

/// The blocks that are allocated and not freed.
long blocks();

}  // namespace Zorbe::Test::Sweep::Memory
