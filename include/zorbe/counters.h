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

/// What a reader counts.
struct ZORBE_EXPORT Counters {
  /// The record as a tuple literal. Each value is one character, the low 8 bits of
  /// its counter, so the length never changes and the text may hold zero bytes.
  std::string toString() const;

  // Looking up keys.
  uint32_t occupiedSlots;    ///< slots that hold a key
  uint32_t usedLookaside;    ///< keys kept outside of their slot
  uint32_t slotProbes;       ///< slots looked at; not printed
  uint32_t lookasideProbes;  ///< places outside of slots looked at; not printed
  uint32_t slotResizes;      ///< times the slots were found resized
  uint32_t chainRestarts;    ///< walks along a chain begun again
  uint32_t chainSteps;       ///< steps along chains; not printed
  uint32_t tornRecords;      ///< records read again because they were being written; not printed

  // Following the writer.
  uint32_t syncerYields;        ///< times that synchronising gave way to the loop
  uint64_t syncerSequence;      ///< sequence up to which was synchronised
  uint32_t conquerRestarts;     ///< passes begun again
  uint32_t conquerProbes;       ///< entries of the change log looked at
  uint32_t conquerEmpty;        ///< passes that found nothing new
  uint32_t conquerEnd;          ///< passes that got to the end
  uint32_t conquerKicks;        ///< batches of kicks received, counted by ReaderKickSm
  uint32_t conquerTombed;       ///< entries that reported a removal
  uint32_t conquerNotified;     ///< changes reported to the client
  uint32_t conquerYields;       ///< passes that gave way to the loop
  uint32_t conquerConnections;  ///< connections made to a writer
  uint64_t conquerSequence;     ///< sequence up to which was read
  uint32_t conquerOverruns;     ///< times the unread change log was overwritten; not printed
  uint32_t conquerRescans;      ///< times all slots were read instead; not printed

  // Staying on the right table.
  uint32_t keyShadowMismatch;  ///< keys that differed from their shadow
  uint32_t invalidIterHints;   ///< hints of iterators that were of no use
  uint32_t shadowWrites;       ///< shadows written
  uint32_t shadowResyncs;      ///< shadows made again
  uint32_t keyMoves;           ///< keys found in another slot
  uint32_t inotifyTriggers;    ///< changes of the root directory
  uint32_t remountTimeouts;    ///< waits for a new table that took too long
};

/// Writes exactly the bytes of `toString()`.
ZORBE_EXPORT std::ostream& operator<<(std::ostream& out, const Counters& counters);

}  // namespace Reader

namespace Writer {

/// What a writer counts.
struct ZORBE_EXPORT Counters {
  /// The record as a tuple literal; values as in Reader::Counters::toString.
  std::string toString() const;

  uint64_t slotAllocs;            ///< slots taken
  uint64_t slotDeallocs;          ///< slots given back
  uint64_t slotReuses;            ///< slots taken again; not printed
  uint64_t conquerTombstones;     ///< removals written to the change log
  uint64_t conquerNotifications;  ///< changes written to the change log
  uint64_t conquerCompactions;    ///< times the change log was compacted
  uint64_t conquerPrunings;       ///< times the change log was pruned
  uint64_t conquerSequence;       ///< sequence that was published last
  uint64_t conquerOverruns;       ///< entries overwritten before all had read them; not printed
  uint64_t conquerReaderWaits;    ///< waits for readers; not printed
  uint64_t kicksIssued;           ///< kicks sent
  uint64_t connectedReaders;      ///< readers connected now
  uint64_t directWrite;           ///< records written in place
  uint64_t directCommit;          ///< records committed in place
  uint64_t inotifyTriggers;       ///< changes of the root directory
};

/// Writes exactly the bytes of `toString()`.
ZORBE_EXPORT std::ostream& operator<<(std::ostream& out, const Counters& counters);

}  // namespace Writer

}  // namespace Zorbe
