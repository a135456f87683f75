// SPDX-License-Identifier: MIT
//
// The resources of processes, as the kernel counts them.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace Zorbe::Test::Chaos {

/// Which of its sleeps a process is in: the same number twice, and it has not run in between.
/// Nothing while it is awake.
std::optional<uint64_t> sleepOf(pid_t pid);

/// Pages of memory that a process has in use.
long residentPagesOf(pid_t pid);

/// Of one thing that is counted again and again: the first count, the last one, and the highest.
struct Counts {
  std::optional<long> first;
  long last = 0;
  long most = 0;

  void note(long count) {
    if (!first) first = count;
    last = count;
    if (count > most) most = count;
  }
  long growth() const { return first ? last - *first : 0; }
};

/// Memory may grow by this much, after the warm-up, and never more: what the allocator
/// keeps depends on the order in which things come and go.
inline constexpr long kPagesOfGrowth = 64;

}  // namespace Zorbe::Test::Chaos
