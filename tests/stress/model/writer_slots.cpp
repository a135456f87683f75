// SPDX-License-Identifier: MIT
#include "writer.h"

namespace Zorbe::Model {

Record Writer::record(Value slot) const {
  return recordIn(m_, p_, slot, m_.size() - 1);
}

Value Writer::find(Value key) const {
  const File& file = index();
  for (Value i = 0; i < file.size; ++i) {
    const Value bucket = load(file.entry(i));
    if (bucket == kEmpty) break;
    if (bucket == kTombstone) continue;
    const Record found = record(slotOf(bucket));
    if (found.state != kUnused && found.key == key) return slotOf(bucket);
  }
  return kNoSlot;
}

void Writer::storeImage(Value slot, Value guard) {
  if (p_.has(Mistake::kNoImage)) return;
  const Value counter = load(At::kImageCounter);
  if (!p_.has(Mistake::kImageNeverOdd)) {
    store(At::kImageCounter, counter + 1, Mistake::kRelaxedImageCounterOdd);
  }
  store(At::kImageSlot, slot, Mistake::kRelaxedImageSlot);
  store(At::kImageGuard, guard, Mistake::kRelaxedImageGuard);
  for (int i = 0; i < p_.words; ++i) {
    store(At::kImageWord + i, load(At::word(slot, i)), Mistake::kRelaxedImageWords);
  }
  store(At::kImageCounter, counter + 2, Mistake::kRelaxedImageCounterEven);
}

void Writer::storeSlot(Value slot, const Record& record) {
  const Value guard = load(At::guard(slot));
  const Words words = wordsOf(record, p_);
  const bool guardFirst = p_.has(Mistake::kGuardBeforeImage);
  const bool evenEarly = p_.has(Mistake::kGuardEvenBeforeWords);
  if (!guardFirst) storeImage(slot, guard);
  store(At::guard(slot), guard + 1, Mistake::kRelaxedGuardOdd);
  if (guardFirst) storeImage(slot, guard);
  for (int i = 0; i < p_.words; ++i) {
    if (i == p_.words - 1 && evenEarly) store(At::guard(slot), guard + 2);
    store(At::word(slot, i), words[static_cast<size_t>(i)], Mistake::kRelaxedWords);
  }
  if (!evenEarly) store(At::guard(slot), guard + 2, Mistake::kRelaxedGuardEven);
}

void Writer::logChange(Value sequence, Value slot) {
  const File& file = log();
  m_.operations.back().logged = m_.size();
  store(file.entry(sequence % file.size), entryOf(p_, sequence, slot), Mistake::kRelaxedLogEntry);
  if (p_.has(Mistake::kPublishedBeforeSlot)) store(At::kPublished, sequence);
}

// Everything of a change that gives a key a slot.
void Writer::storeNew(Value slot, const Record& stored) {
  const bool reuse = record(slot).state == kErased;
  const bool late = p_.has(Mistake::kTombstoneBeforeLog);
  if (reuse && late) storeTombstone(slot);
  if (!p_.has(Mistake::kLogAfterSlot)) logChange(stored.sequence, slot);
  if (reuse && !late && !p_.has(Mistake::kNoTombstone)) storeTombstone(slot);
  const bool indexFirst = p_.has(Mistake::kIndexBeforeSlot);
  if (indexFirst) insert(stored.key, slot);
  storeSlot(slot, stored);
  if (p_.has(Mistake::kLogAfterSlot)) logChange(stored.sequence, slot);
  if (!indexFirst) insert(stored.key, slot);
}

void Writer::insert(Value, Value slot) {  // every key has the same hash
  const File& file = index();
  for (Value i = 0; i < file.size; ++i) {
    const Value bucket = load(file.entry(i));
    if (bucket != kEmpty && !(p_.tombstonesReused && bucket == kTombstone)) continue;
    store(file.entry(i), bucketOf(slot), Mistake::kRelaxedBucket);
    return;
  }
  throw Violation("writer: the index is full");
}

void Writer::storeTombstone(Value slot) {
  const File& file = index();
  for (Value i = 0; i < file.size; ++i) {
    if (load(file.entry(i)) != bucketOf(slot)) continue;
    store(file.entry(i), kTombstone, Mistake::kRelaxedTombstone);
    return;
  }
  throw Violation("writer: an erased slot is not in the index");
}

bool Writer::roomInIndex(bool reuse) const {
  const File& file = index();
  for (Value i = 0; i < file.size; ++i) {
    const Value bucket = load(file.entry(i));
    if (bucket == kEmpty || (p_.tombstonesReused && (bucket == kTombstone || reuse))) return true;
  }
  return false;
}

// A slot that was never used, else one that no follower can still ask for, else none.
Value Writer::freeSlot(Value n) const {
  const Value capacity = load(At::kCapacity);
  for (Value slot = 0; slot < capacity; ++slot) {
    if (record(slot).state == kUnused) return slot;
  }
  const Value distance = log().size - (p_.has(Mistake::kReuseTooEarly) ? 1 : 0);
  for (Value slot = 0; slot < capacity; ++slot) {
    const Record erased = record(slot);
    if (erased.state == kErased && n - erased.sequence >= distance) return slot;
  }
  return kNoSlot;
}

}  // namespace Zorbe::Model
