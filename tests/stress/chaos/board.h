// SPDX-License-Identifier: MIT
//
// What the processes of a storm tell about themselves, in memory that they share.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace Zorbe::Test::Chaos {

/// A reader, or a process that is the writer or wants to be. Written by that process but for
/// what it is asked for, and for what its writer has heard of it.
struct Place {
  std::atomic<pid_t> pid;          ///< 0 before the process has begun
  std::atomic<uint32_t> fenix;     ///< the incarnation of its table
  std::atomic<uint64_t> sequence;  ///< read, or published

  // A reader's.
  std::atomic<bool> attached;           ///< connected, and sees the writer
  std::atomic<uint32_t> departures;     ///< ends of writers that it was told of
  std::atomic<uint32_t> corruptions;    ///< tables that contradicted themselves
  std::atomic<uint32_t> heardFenix;     ///< what the writer knows that this reader has read
  std::atomic<uint64_t> heardSequence;  ///< of that incarnation

  // A writer's.
  std::atomic<bool> writing;          ///< it has the lock
  std::atomic<uint32_t> answered;     ///< the last request to publish that it knows of
  std::atomic<uint32_t> connections;  ///< that it has
  std::atomic<pid_t> otherWriter;     ///< met with the lock in its hands
};

struct Board {
  static constexpr unsigned mostPlaces = 128;
  std::array<Place, mostPlaces> places;
};

/// What a process does wrong, to show that it is noticed.
enum class Flaw {
  none,
  leaksDescriptors,  ///< a reader leaves one open for each table that it maps
  leaksMemory,       ///< a reader keeps some memory for each table that it maps
  staysAway,         ///< a reader does nothing about the departure of its writer
  hearsNothing,      ///< a reader is not told of departures
  writerLeaks,       ///< a writer leaves a descriptor open whenever it is asked to publish
  ignoresTheLock,    ///< a competitor that was refused writes all the same
};

}  // namespace Zorbe::Test::Chaos
