// SPDX-License-Identifier: MIT
//
// The bytes of a quotes table, as writer and readers share them. Two files of the
// table's root directory:
//
//   slots       SlotsHeader | Slot 0 | Slot 1 | ...        the hash table
//   conquer.1   LogHeader   | LogEntry 0 | LogEntry 1 ...  what has changed lately
//
// Who may touch what. One process writes (it holds the writer lock); every other
// one only reads. Everything that changes after the files are complete is a
// std::atomic, so that there is no data race in the sense of the language, and all
// of it is lock-free, which is what makes it work between processes.
//
// Files are never truncated or used a second time: a new incarnation of the table
// gets new files, so a reader that still maps the old ones reads old, but whole,
// memory. They are made under other names and renamed when they are complete, so that
// a writer that is killed meanwhile leaves the table as it was.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Quotes {

/// Eight characters as they lie in memory: what Util::decodeMagic prints.
constexpr uint64_t magicOf(const char (&text)[9]) {
  uint64_t magic = 0;
  for (unsigned i = 0; i < 8; ++i) {
    magic |= uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
  }
  return magic;
}

constexpr uint64_t kSlotsMagic = magicOf("QUOTES02");
constexpr uint64_t kLogMagic = magicOf("QUOTLOG1");
constexpr const char* kSlotsFile = "slots";
constexpr const char* kLogFile = "conquer.1";

// The names until they are complete. They belong to a table, too: `zorbe remove` knows them.
constexpr const char* kUnfinishedSlotsFile = "buckets";
constexpr const char* kUnfinishedLogFile = "conquer.2";

constexpr size_t kSymbolBytes = 16;  // the last one is always zero

/// One quote as it is stored. The checksum covers the record with a checksum of 0.
struct Record {
  char symbol[kSymbolBytes];
  int64_t price;      // in ten-thousandths
  uint64_t sequence;  // of the publish that stored it
  uint32_t size;
  uint16_t checksum;
  uint16_t unused;
};
constexpr size_t kRecordWords = sizeof(Record) / sizeof(uint64_t);
static_assert(sizeof(Record) == kRecordWords * sizeof(uint64_t), "a record is whole words");

/// A record behind its sequence counter (a "seqlock"):
///
///   guard 0     the slot was never used
///   guard odd   the writer is changing the words
///   guard even  the words are a whole record
///
/// A reader takes the guard, the words, the guard again: equal and even means that
/// no word is from another publish. The writer never waits for a reader.
struct alignas(64) Slot {
  std::atomic<uint32_t> guard;
  std::atomic<uint64_t> words[kRecordWords];
};

struct alignas(64) SlotsHeader {
  std::atomic<uint64_t> magic;
  uint32_t fenix;                 // the incarnation, in both files
  uint32_t capacity;              // in slots
  std::atomic<uint32_t> retired;  // 1: the writer goes on in other files

  /// The record that the latest store has replaced, and the slot, counted from 1. A writer
  /// that was killed in the middle of a store has lost the new record; this is the one
  /// before it.
  std::atomic<uint32_t> replacedSlot;
  Slot replaced;
};

/// The change log is a ring: the change with sequence n is entry n % capacity, until
/// change n + capacity takes its place.
struct alignas(64) LogHeader {
  std::atomic<uint64_t> magic;
  uint32_t fenix;
  uint32_t capacity;                            // in entries
  alignas(64) std::atomic<uint64_t> published;  // the last sequence readers may look at
};

struct LogEntry {
  /// Low half of the sequence above the slot's index: one word, so that a reader
  /// that was lapped sees it from the sequence, and never a mixture.
  std::atomic<uint64_t> change;
  std::atomic<uint64_t> publishedAt;  // CLOCK_MONOTONIC, nanoseconds; for statistics
};

constexpr uint64_t packChange(uint64_t sequence, uint32_t slot) {
  return (sequence << 32) | slot;
}

static_assert(std::atomic<uint64_t>::is_always_lock_free, "shared between processes");
static_assert(std::atomic<uint32_t>::is_always_lock_free, "shared between processes");
static_assert(sizeof(Slot) == 64 && sizeof(SlotsHeader) == 128 && sizeof(LogHeader) == 128 &&
                  sizeof(LogEntry) == 16,
              "the layout is shared between programs");

}  // namespace Quotes
