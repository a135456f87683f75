// SPDX-License-Identifier: MIT
#include "memory/slot_memory.h"

#include <cstring>

namespace Zorbe::Table {

namespace {

// A writer that stores without a pause makes a reader try again a few times in a million reads.
// So many attempts in a row mean that the memory is not a table.
constexpr uint32_t kMaxAttempts = 1u << 20;

constexpr bool isOdd(uint64_t value) {
  return value % 2 != 0;
}

void storeBytes(Word* to, const void* from, uint32_t bytes) {
  const char* source = static_cast<const char*>(from);
  for (; bytes >= 8; bytes -= 8, source += 8) {
    uint64_t word;
    std::memcpy(&word, source, 8);
    release(*to++, word);
  }
  if (bytes == 0) return;
  uint64_t word = 0;
  std::memcpy(&word, source, bytes);
  release(*to, word);
}

}  // namespace

bool SlotMemory::readAgain(uint32_t index, RecordOut& out) const {
  const Slot& from = slot(index);
  uint64_t lastOdd = 0;
  for (uint32_t attempt = 0; attempt < kMaxAttempts; ++attempt) {
    const uint64_t guard = acquire(from.guard);
    if (!isOdd(guard)) {
      copyOut(&from.state, out);
      if (relaxed(from.guard) == guard) return true;
    } else {
      // The image was another store's: then this one was over, and its guard has risen.
      if (guard == lastOdd) break;
      if (readImage(index, guard, out)) return true;
      lastOdd = guard;
    }
  }
  return false;
}

bool SlotMemory::readImage(uint32_t index, uint64_t guard, RecordOut& out) const {
  const Image& from = image();
  const uint64_t sequence = acquire(from.sequence);
  if (!isOdd(sequence)) {
    const bool mine = acquire(from.slot) == index && acquire(from.guard) + 1 == guard;
    copyOut(from.words, out);
    if (relaxed(from.sequence) == sequence && mine) return true;
  }
  static_cast<void>(acquire(from.sequence));  // what came before it is visible to the next attempt
  return false;
}

void SlotMemory::saveImage(uint32_t index, const Slot& from, uint64_t guard) const {
  Image& to = image();
  const uint64_t sequence = relaxed(to.sequence);
  release(to.sequence, sequence + 1);
  release(to.slot, index);
  release(to.guard, guard);
  const Word* words = &from.state;
  for (uint32_t i = 0; i < geometry_.recordWords; ++i) release(to.words[i], relaxed(words[i]));
  release(to.sequence, sequence + 2);
}

void SlotMemory::store(uint32_t index, const RecordIn& record) const {
  Slot& to = slot(index);
  const uint64_t guard = relaxed(to.guard);
  saveImage(index, to, guard);
  release(to.guard, guard + 1);
  release(to.state, record.state);
  release(to.sequence, record.sequence);
  for (uint32_t i = 0; i < geometry_.keyWords; ++i) release(to.key[i], record.key[i]);
  if (record.value != nullptr) {
    storeBytes(to.key + geometry_.keyWords, record.value, geometry_.valueBytes);
  }
  release(to.guard, guard + 2);
}

bool SlotMemory::keyIs(uint32_t index, const uint64_t* key) const {
  const Word* own = slot(index).key;
  for (uint32_t i = 0; i < geometry_.keyWords; ++i) {
    if (relaxed(own[i]) != key[i]) return false;
  }
  return true;
}

bool SlotMemory::undoStore(uint64_t capacity) const {
  Image& saved = image();
  const uint64_t sequence = relaxed(saved.sequence);
  if (isOdd(sequence)) {
    release(saved.slot, kNoSlot);
    release(saved.sequence, sequence + 1);
  } else if (const uint64_t index = relaxed(saved.slot); index < capacity) {
    Slot& to = slot(static_cast<uint32_t>(index));
    const uint64_t guard = relaxed(saved.guard);
    if (isOdd(guard)) return false;
    if (relaxed(to.guard) == guard + 1) {
      Word* words = &to.state;
      for (uint32_t i = 0; i < geometry_.recordWords; ++i) {
        release(words[i], relaxed(saved.words[i]));
      }
      release(to.guard, guard + 2);
    }
  }
  return true;
}

}  // namespace Zorbe::Table
