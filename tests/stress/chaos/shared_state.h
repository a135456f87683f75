// SPDX-License-Identifier: MIT
//
// The state that the processes of a stress run publish, in memory that they share.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "stress/chaos/record.h"

namespace Zorbe::Test::Chaos {

/// A reader, or a process that is the writer or wants to be. Written by that process but for
/// what it is asked for.
struct ProcessState {
  std::atomic<pid_t> pid;  ///< 0 before the process has begun

  // A reader's.
  std::atomic<bool> attached;         ///< it is connected to the writer
  std::atomic<uint64_t> incarnation;  ///< of the table that it reads
  std::atomic<uint64_t> position;     ///< up to which it has followed
  std::atomic<uint64_t> digest;       ///< of its copy of the records
  std::atomic<uint32_t> torn;         ///< records that are mixtures of two

  // A writer's.
  std::atomic<bool> writing;        ///< it has the lock
  std::atomic<uint32_t> answered;   ///< the last request to publish that it knows of
  std::atomic<pid_t> otherWriter;   ///< that had the lock at the same time
  std::atomic<uint32_t> takeovers;  ///< tables that it has continued, and found complete
  std::atomic<uint32_t> lost;  ///< keys whose last finished change was not in a table it took over
};

struct SharedState {
  static constexpr unsigned kMostProcesses = 128;

  std::array<ProcessState, kMostProcesses> processes;
  std::atomic<uint64_t> changes;                   ///< numbers them, over all writers
  std::array<std::atomic<uint64_t>, kKeys> begun;  ///< by key: stored before the table is changed
  std::array<std::atomic<uint64_t>, kKeys> finished;  ///< by key: stored afterwards
  std::atomic<bool> removed;  ///< the directory was removed, and perhaps no process has the records
};

/// What a process does wrong, to show that it is noticed.
enum class Flaw {
  kNone,
  kLeaksDescriptors,  ///< a reader leaves one open for each table that it maps
  kLeaksMemory,       ///< a reader keeps some memory for each table that it maps
  kStaysAway,         ///< a reader does nothing any more when its writer has ended
  kForgetsChanges,    ///< a reader does not apply one change in a hundred
  kWriterLeaks,       ///< a writer leaves a descriptor open whenever it is asked to publish
  kForgetsRecords,    ///< a writer that takes over drops one record of the table
  kTearsRecords,      ///< a writer puts a record whose words do not belong together
  kIgnoresTheLock,    ///< a competitor that was refused writes nevertheless
};

}  // namespace Zorbe::Test::Chaos
