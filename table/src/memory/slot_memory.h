// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>

#include "memory/layout.h"

namespace Zorbe::Table {

/// A record that is read from a slot: the caller provides the memory.
struct RecordOut {
  uint64_t* key;            // as many words as the table's keys have
  void* value;              // null: not wanted
  uint32_t valueBytes = 0;  // at most the table's
  uint64_t state = kFree;
  uint64_t sequence = 0;
};

/// A record that is stored in a slot.
struct RecordIn {
  uint64_t state;
  uint64_t sequence;
  const uint64_t* key;
  const void* value;  // null: the slot's value stays
};

/// The memory of `slots`: reading and storing records. Knows nothing of files and checks no
/// slot number: the caller does.
///
/// store() first saves the slot in the image, so that a reader that finds the slot's guard odd
/// gets the old record from there, also when the writer is stopped or killed at that moment.
/// Only one slot is odd at a time.
class SlotMemory {
 public:
  SlotMemory() = default;
  SlotMemory(char* base, const Geometry& geometry) : base_(base), geometry_(geometry) {}

  const Geometry& geometry() const { return geometry_; }
  SlotsHeader& header() const { return *reinterpret_cast<SlotsHeader*>(base_); }
  Image& image() const { return *reinterpret_cast<Image*>(base_ + Geometry::imageOffset()); }
  Slot& slot(uint32_t index) const {
    return *reinterpret_cast<Slot*>(base_ + geometry_.slotsOffset +
                                    uint64_t{index} * geometry_.slotBytes);
  }
  void prefetch(uint32_t index) const { __builtin_prefetch(&slot(index)); }

  /// Any process: a whole record, the newest or the one before the current store. False when the
  /// guard contradicts the image, which no writer causes.
  bool read(uint32_t index, RecordOut& out) const {
    const Slot& from = slot(index);
    const uint64_t guard = acquire(from.guard);
    if (guard % 2 == 0) {
      copyOut(&from.state, out);
      if (relaxed(from.guard) == guard) return true;
    }
    return readAgain(index, out);
  }

  /// The writer: replaces a record.
  void store(uint32_t index, const RecordIn& record) const;

  /// The writer: the key of a slot, whose guard is even.
  bool keyIs(uint32_t index, const uint64_t* key) const;
  uint64_t stateOf(uint32_t index) const { return relaxed(slot(index).state); }
  uint64_t sequenceOf(uint32_t index) const { return relaxed(slot(index).sequence); }

  /// The writer: whether a store of this slot was begun and not finished.
  bool isBeingStored(uint32_t index) const { return relaxed(slot(index).guard) % 2 != 0; }

  /// A writer that takes over: undoes the store that the writer before it was killed in.
  /// False when the image contradicts itself. `capacity` bounds the slot numbers.
  bool undoStore(uint64_t capacity) const;

 private:
  bool readImage(uint32_t index, uint64_t guard, RecordOut& out) const;
  bool readAgain(uint32_t index, RecordOut& out) const;

  // Acquire on each word: the second look at the guard then sees the odd one of the store that
  // the word came from.
  void copyOut(const Word* words, RecordOut& out) const {
    out.state = acquire(words[0]);
    out.sequence = acquire(words[1]);
    for (uint32_t i = 0; i < geometry_.keyWords; ++i) out.key[i] = acquire(words[2 + i]);
    if (out.value == nullptr) return;
    const Word* from = words + 2 + geometry_.keyWords;
    char* target = static_cast<char*>(out.value);
    uint32_t bytes = out.valueBytes;
    for (; bytes >= 8; bytes -= 8, target += 8) {
      const uint64_t word = acquire(*from++);
      std::memcpy(target, &word, 8);
    }
    if (bytes == 0) return;
    const uint64_t word = acquire(*from);
    std::memcpy(target, &word, bytes);
  }

  void saveImage(uint32_t index, const Slot& from, uint64_t guard) const;

  char* base_ = nullptr;
  Geometry geometry_;
};

}  // namespace Zorbe::Table
