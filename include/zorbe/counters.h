// SPDX-License-Identifier: MIT
//
// Statistics records of readers and writers: plain memory that its owner zeroes,
// and that the table code and the kick machinery count up.
#pragma once

#include <zorbe/export.h>

#include <cstdint>
#include <iosfwd>
#include <string>

namespace Zorbe {

namespace Reader {

struct ZORBE_EXPORT Counters {
  /// The record as a tuple literal. Each value is one character, the low 8 bits of
  /// its counter, so the length never changes and the text may hold zero bytes.
  std::string toString() const;

  // Looking up keys.
  uint32_t occupiedSlots;
  uint32_t usedLookaside;
  uint32_t slotProbes;       // not printed
  uint32_t lookasideProbes;  // not printed
  uint32_t slotResizes;
  uint32_t chainRestarts;
  uint32_t chainSteps;   // not printed
  uint32_t tornRecords;  // not printed

  // Following the writer.
  uint32_t syncerYields;
  uint64_t syncerSequence;
  uint32_t conquerRestarts;
  uint32_t conquerProbes;
  uint32_t conquerEmpty;
  uint32_t conquerEnd;
  uint32_t conquerKicks;  ///< batches of kicks received, counted by ReaderKickSm
  uint32_t conquerTombed;
  uint32_t conquerNotified;
  uint32_t conquerYields;
  uint32_t conquerConnections;
  uint64_t conquerSequence;
  uint32_t conquerOverruns;  // not printed
  uint32_t conquerRescans;   // not printed

  // Staying on the right table.
  uint32_t keyShadowMismatch;
  uint32_t invalidIterHints;
  uint32_t shadowWrites;
  uint32_t shadowResyncs;
  uint32_t keyMoves;
  uint32_t inotifyTriggers;
  uint32_t remountTimeouts;
};

/// Writes exactly the bytes of `toString()`.
ZORBE_EXPORT std::ostream& operator<<(std::ostream& out, const Counters& counters);

}  // namespace Reader

namespace Writer {

struct ZORBE_EXPORT Counters {
  /// The record as a tuple literal; values as in Reader::Counters::toString.
  std::string toString() const;

  uint64_t slotAllocs;
  uint64_t slotDeallocs;
  uint64_t slotReuses;  // not printed
  uint64_t conquerTombstones;
  uint64_t conquerNotifications;
  uint64_t conquerCompactions;
  uint64_t conquerPrunings;
  uint64_t conquerSequence;
  uint64_t conquerOverruns;     // not printed
  uint64_t conquerReaderWaits;  // not printed
  uint64_t kicksIssued;
  uint64_t connectedReaders;
  uint64_t directWrite;
  uint64_t directCommit;
  uint64_t inotifyTriggers;
};

/// Writes exactly the bytes of `toString()`.
ZORBE_EXPORT std::ostream& operator<<(std::ostream& out, const Counters& counters);

}  // namespace Writer

}  // namespace Zorbe
