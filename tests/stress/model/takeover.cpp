// SPDX-License-Identifier: MIT
#include "writer.h"

namespace Zorbe::Model {

void Writer::takeOver() {
  undo();
  takeGeneration();
  keepFinished();
  checkSlots();
  publish();
  m_.quiet.push_back(m_.size());
}

// Restores the slot in whose write the last writer was killed.
void Writer::undo() {
  const Value counter = load(At::kImageCounter);
  if (counter % 2 == 1) {
    const bool evenFirst = p_.has(Mistake::kTornImageEvenFirst);
    if (evenFirst) store(At::kImageCounter, counter + 1);
    if (!p_.has(Mistake::kTornImageEven)) {
      store(At::kImageSlot, kNoSlot, Mistake::kRelaxedImageNone);
    }
    if (!evenFirst) store(At::kImageCounter, counter + 1, Mistake::kRelaxedImageRepaired);
    return;
  }
  const Value slot = load(At::kImageSlot);
  const Value guard = load(At::kImageGuard);
  if (slot == kNoSlot || load(At::guard(slot)) != guard + 1) return;
  const Value even = guard + (p_.has(Mistake::kGuardRestored) ? 0 : 2);
  const bool guardFirst = p_.has(Mistake::kUndoGuardBeforeWords);
  if (guardFirst) store(At::guard(slot), even);
  for (int i = 0; i < p_.words && !p_.has(Mistake::kNoUndo); ++i) {
    store(At::word(slot, i), load(At::kImageWord + i));
  }
  if (!guardFirst) store(At::guard(slot), even, Mistake::kRelaxedUndoneGuard);
}

void Writer::takeGeneration() {
  if (p_.has(Mistake::kTakeoverLeavesGeneration)) return;
  const File& file = index();
  const Value generation = load(At::kIndexGeneration);
  if (file.generation == generation + 1 && load(file.magic) == 1) {
    store(At::kIndexGeneration, generation + 1, Mistake::kRelaxedIndexGeneration);
  } else if (file.generation != generation || load(file.magic) != 1) {
    throw Violation("takeover: the index that indexGen names is not there");
  }
}

bool Writer::indexed(Value slot) const {
  const File& file = index();
  for (Value i = 0; i < file.size; ++i) {
    if (load(file.entry(i)) == bucketOf(slot)) return true;
  }
  return false;
}

// The changes that follow the last published one, as far as they are whole.
void Writer::keepFinished() {
  appended_ = load(At::kPublished);
  if (p_.has(Mistake::kTakeoverForgetsUnpublished)) return;
  const File file = log();
  for (Value i = 0; i < file.size; ++i) {
    const Value n = appended_ + 1;
    const Value entry = load(file.entry(n % file.size));
    const Value slot = entry % kSlotsInEntry;
    if (entry != entryOf(p_, n, slot) || slot >= load(At::kCapacity)) return;
    const Record found = record(slot);
    const bool unbegun = found.sequence < n && !p_.has(Mistake::kTakeoverKeepsUnbegun);
    if (unbegun && p_.has(Mistake::kTakeoverStopsBeforeIndex)) return;
    if (!unbegun && p_.has(Mistake::kTakeoverPublishesEarly)) store(At::kPublished, n);
    if (found.state != kUnused && !indexed(slot) && !p_.has(Mistake::kTakeoverLeavesIndex)) {
      if (roomInIndex(false)) {
        insert(found.key, slot);
      } else {
        rebuild();
      }
    }
    if (unbegun) return;
    appended_ = n;
  }
}

void Writer::checkSlots() const {
  for (Value slot = 0; slot < load(At::kCapacity); ++slot) {
    const std::string name = "takeover: slot " + std::to_string(slot);
    if (load(At::guard(slot)) % 2 == 1) throw Violation(name + " has an odd guard without image");
    const Record found = record(slot);
    if (found.state > kErased) throw Violation(name + " has no state");
    if (found.sequence > appended_) throw Violation(name + " is newer than the last change");
  }
}

}  // namespace Zorbe::Model
