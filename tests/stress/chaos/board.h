// SPDX-License-Identifier: MIT
//
// The state that the processes of a stress run publish, in memory that they share.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace Zorbe::Test::Chaos {

/// A reader, or a process that is the writer or wants to be. Written by that process but for
/// what it is asked for, and for what it has reported to its writer.
struct Place {
  std::atomic<pid_t> pid;          ///< 0 before the process has begun
  std::atomic<uint32_t> fenix;     ///< the incarnation of its table
  std::atomic<uint64_t> sequence;  ///< read, or published

  // A reader's.
  std::atomic<bool> attached;              ///< connected, and sees the writer
  std::atomic<uint32_t> departures;        ///< ends of writers that were reported to it
  std::atomic<uint32_t> corruptions;       ///< tables that contradicted themselves
  std::atomic<uint32_t> reportedFenix;     ///< what the writer knows that this reader has read
  std::atomic<uint64_t> reportedSequence;  ///< of that incarnation

  // A writer's.
  std::atomic<bool> writing;          ///< it has the lock
  std::atomic<uint32_t> answered;     ///< the last request to publish that it knows of
  std::atomic<uint32_t> connections;  ///< that it has
  std::atomic<pid_t> otherWriter;     ///< met with the lock in its hands
};

/// Writers publish sequence n as the value n of key n % kKeys.
constexpr unsigned kKeys = 16;

struct Board {
  static constexpr unsigned kMostPlaces = 128;
  std::array<Place, kMostPlaces> places;
  std::array<std::atomic<uint64_t>, kKeys> published;  ///< by key; written by each writer in turn
};

/// What a process does wrong, to show that it is noticed.
enum class Flaw {
  kNone,
  kLeaksDescriptors,  ///< a reader leaves one open for each table that it maps
  kLeaksMemory,       ///< a reader keeps some memory for each table that it maps
  kStaysAway,         ///< a reader does nothing about the departure of its writer
  kMissesDepartures,  ///< departures are not reported to a reader
  kWriterLeaks,       ///< a writer leaves a descriptor open whenever it is asked to publish
  kStartsEmpty,       ///< a writer removes the files of the writer before it
  kIgnoresTheLock,    ///< a competitor that was refused writes nevertheless
};

}  // namespace Zorbe::Test::Chaos
