// SPDX-License-Identifier: MIT
//
// The bytes of a table, as its writer and its readers share them. Three files of the table's
// root directory:
//
//   slots                  SlotsHeader | Image | Slot 0 | Slot 1 | ...      the records
//   buckets                IndexHeader | bucket 0 | bucket 1 | ...          where a key's slot is
//   conquer.1, conquer.2   LogHeader | entry 0 | entry 1 | ...              the latest changes
//
// Everything is a 64-bit word in the byte order of the host. One process writes (it holds the
// writer lock), every other one only reads. All words are atomic, every store of the writer is
// a release store: at any instant memory is a prefix of the writer's program order.
//
// A file is complete when it has its magic, which is stored last. Each header holds the
// incarnation; `slots` decides which one is current.
#pragma once

#include <zorbe/table/window.h>

#include <cstddef>
#include <cstdint>

namespace Zorbe::Table {

using Detail::acquire;
using Detail::kErased;
using Detail::kFree;
using Detail::kLive;
using Detail::relaxed;
using Detail::SlotState;
using Detail::Word;

static_assert(Word::is_always_lock_free && sizeof(Word) == 8, "words are shared between processes");

inline void release(Word& word, uint64_t value) {
  word.store(value, std::memory_order_release);
}

/// Eight characters in memory order, in any byte order of the host.
uint64_t magicOf(const char (&text)[9]);

inline constexpr char kSlotsMagic[] = "ZTSLOTS1";
inline constexpr char kIndexMagic[] = "ZTINDEX1";
inline constexpr char kLogMagic[] = "ZTCHLOG1";

inline constexpr const char* kSlotsFile = "slots";
inline constexpr const char* kIndexFile = "buckets";

/// The name of the change log of a generation: they alternate.
inline const char* logFileOf(uint64_t generation) {
  return generation % 2 != 0 ? "conquer.1" : "conquer.2";
}

inline constexpr uint64_t kByteOrder = 0x0102030405060708;
inline constexpr uint64_t kVersion = 1;
inline constexpr size_t kLine = 64;    // bytes of a cache line
inline constexpr size_t kPage = 4096;  // where the slots begin, at a multiple

inline constexpr uint32_t kMaxKeyBytes = 1024;
inline constexpr uint32_t kMaxValueBytes = 1u << 20;
inline constexpr size_t kMaxKeyWords = kMaxKeyBytes / 8;
inline constexpr uint64_t kMaxSlots = 3'000'000'000;  // an index entry has 32 bits for a slot
inline constexpr uint64_t kMinLogEntries = 64;
inline constexpr uint64_t kMaxLogEntries = uint64_t{1} << 30;
inline constexpr size_t kDescriptionWords = 2048;
inline constexpr size_t kStatusWords = 1024;  // of one of the two copies

/// The first line of every file.
struct alignas(kLine) Prologue {
  Word magic;
  Word byteOrder;
  Word version;
  Word incarnation;
  Word bootLow;  // of the boot id: after a crash of the machine a file may be older in part
  Word bootHigh;
  Word generation;  // of the index or the log; 0 in `slots`
  Word size;        // buckets, entries; 0 in `slots`, whose number of slots changes
};

struct SlotsHeader {
  Prologue prologue;

  // What never changes.
  alignas(kLine) Word keyBytes;
  Word valueBytes;
  Word maxRecords;  // 0: without a limit
  Word descriptionBytes;

  // What changes with every publish.
  alignas(kLine) Word published;  // sequences up to this one may be read
  Word publishedAt;               // CLOCK_REALTIME, nanoseconds

  // What changes rarely.
  alignas(kLine) Word indexGeneration;
  Word logGeneration;
  Word capacity;   // slots
  Word retired;    // 1: check whether `slots` is another file now
  Word origin;     // where the records come from: see origin.h
  Word takeovers;  // writers that continued the table

  // Who reads: two copies, and which one is valid.
  alignas(kLine) Word statusSelector;
  alignas(kLine) Word status[2][kStatusWords];

  alignas(kLine) Word description[kDescriptionWords];
};

/// The content of a slot before the current store: what readers get while the slot's guard is
/// odd. `words` has as many words as a slot.
struct alignas(kLine) Image {
  Word sequence;  // odd while the image itself is being written
  Word slot;      // its number, kNoSlot for none
  Word guard;     // the slot's, before the store
  Word words[1];
};

inline constexpr uint64_t kNoSlot = ~uint64_t{0};

/// One record. `guard` is odd while the words change, and only rises.
struct Slot {
  Word guard;
  Word state;
  Word sequence;  // of the last change
  Word key[1];    // followed by the value's words
};

struct IndexHeader {
  Prologue prologue;
  alignas(kLine) Word seed;  // of the hash
  Word buckets;              // entries follow on the next line
};

/// An entry of the index: the hash's low half above the slot's number plus one.
inline constexpr uint64_t kEmptyBucket = 0;
inline constexpr uint64_t kTombstone = uint64_t{1} << 32;

struct LogHeader {
  Prologue prologue;
  alignas(kLine) Word first;  // the lowest sequence that the log holds
};

/// An entry of the log: the low half of the sequence above the slot's number.
inline constexpr uint64_t packEntry(uint64_t sequence, uint32_t slot) {
  return (sequence << 32) | slot;
}
inline constexpr bool hasTag(uint64_t entry, uint64_t sequence) {
  return (entry >> 32) == (sequence & 0xffffffffu);
}

inline constexpr size_t kIndexEntries = 2 * kLine;  // where the entries begin
inline constexpr size_t kLogEntries = 2 * kLine;

/// The offsets in `slots`, derived from the sizes of key and value.
class Geometry {
 public:
  Geometry() = default;
  Geometry(uint32_t keyBytes, uint32_t valueBytes);

  uint32_t keyBytes = 0;
  uint32_t valueBytes = 0;
  uint32_t keyWords = 0;
  uint32_t recordWords = 0;  // state, sequence, key, value
  uint32_t slotBytes = 0;    // a multiple of a line
  uint64_t slotsOffset = 0;  // of slot 0

  static constexpr uint64_t imageOffset() { return sizeof(SlotsHeader); }

  /// The length of a file of `slots` slots.
  uint64_t fileBytes(uint64_t slots) const { return slotsOffset + slots * slotBytes; }
};

static_assert(offsetof(Slot, guard) == 8 * Detail::kGuardWord &&
                  offsetof(Slot, state) == 8 * Detail::kStateWord &&
                  offsetof(Slot, sequence) == 8 * Detail::kSequenceWord &&
                  offsetof(Slot, key) == 8 * Detail::kKeyWord &&
                  kLine == sizeof(Word) * Detail::kLineEntries,
              "programs read the slots with what window.h says of them");
static_assert(sizeof(Prologue) == kLine && sizeof(LogHeader) == kLogEntries &&
                  sizeof(IndexHeader) == kIndexEntries && sizeof(SlotsHeader) % kLine == 0,
              "the layout is shared between programs");

}  // namespace Zorbe::Table
