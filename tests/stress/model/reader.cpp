// SPDX-License-Identifier: MIT
#include "reader.h"

namespace Zorbe::Model {

void corrupt(const std::string& what) {
  throw Violation("reader: takes for corruption that " + what);
}

void Reader::mapAsOf(int length) {
  index_ = m_.at(At::kIndexName, length - 1) - 1;
  capacity_ = m_.at(At::kCapacity, length - 1);
}

void Reader::remember(uint64_t state) {
  remembered_ = state;
  x_.checkpoint(mix(mix(mix(state, index_), capacity_), 9));
}

Reader::Attempt Reader::readEven(Value slot, Value guard, Record& record) {
  Words words{};
  for (int i = 0; i < p_.words; ++i) {
    words[static_cast<size_t>(i)] = load(At::word(slot, i), unless(Mistake::kReadWordsRelaxed));
  }
  record = recordOf(words, p_);
  if (p_.has(Mistake::kNoSecondLook)) return Attempt::kAccepted;
  return load(At::guard(slot), Order::kRelaxed) == guard ? Attempt::kAccepted : Attempt::kRetry;
}

Reader::Attempt Reader::readImage(Value slot, Value guard, Record& record) {
  const Value counter = load(At::kImageCounter, unless(Mistake::kReadImageCounterRelaxed));
  if (counter % 2 == 1 && !p_.has(Mistake::kOddImageAccepted)) return Attempt::kRetry;
  const Order order = unless(Mistake::kReadImageRelaxed);
  const Value imageSlot = load(At::kImageSlot, order);
  const Value imageGuard = load(At::kImageGuard, order);
  Words words{};
  for (int i = 0; i < p_.words; ++i) {
    words[static_cast<size_t>(i)] = load(At::kImageWord + i, order);
  }
  record = recordOf(words, p_);
  const bool same = load(At::kImageCounter, Order::kRelaxed) == counter;
  return (same || p_.has(Mistake::kNoSecondLookAtImage)) &&
                 (imageSlot == slot || p_.has(Mistake::kImageSlotUnchecked)) &&
                 imageGuard + 1 == guard
             ? Attempt::kAccepted
             : Attempt::kRetry;
}

// A failed attempt proves that the writer moved on: the guard is then another one. So a writer
// that is stopped or killed makes no reader try again more often than it has stored.
Record Reader::read(Value slot, uint64_t context) {
  Record record;
  Value refused = ~0U;
  context = mix(mix(mix(mix(remembered_, context), index_), capacity_), slot);
  for (;;) {
    x_.checkpoint(mix(mix(context, refused), 7));
    const Value guard = load(At::guard(slot), unless(Mistake::kReadGuardRelaxed));
    if (guard == refused) corrupt("a guard did not change though an attempt failed");
    const bool even = guard % 2 == 0;
    const Attempt attempt = even ? readEven(slot, guard, record) : readImage(slot, guard, record);
    if (attempt == Attempt::kAccepted) break;
    if (!even && !p_.has(Mistake::kRetryWithoutAcquire)) load(At::kImageCounter);
    refused = guard;
  }
  uint64_t state = mix(context, record.state);
  state = mix(mix(mix(state, record.sequence), record.key), record.value);
  x_.checkpoint(mix(state, 8));
  return record;
}

Record Reader::readChecked(Value slot, uint64_t context) {
  if (slot >= capacity_) {
    capacity_ = load(At::kCapacity, unless(Mistake::kReadCapacityRelaxed));
    if (slot >= capacity_) corrupt("a slot lies beyond the capacity");
    if (load(At::kFileSize) < capacity_) corrupt("the file is shorter than its capacity");
  }
  const Record record = read(slot, context);
  if (record.state == kUnused) corrupt("a slot that is referred to was never used");
  return record;
}

// Below, `context` tells apart every place of a reader from which a slot is read: the index that
// is probed, the place in it, and the key.
bool Reader::probe(Value key, Record& found) {
  const File& file = m_.file(index_);
  for (Value i = 0; i < file.size;) {
    const Value bucket = load(file.entry(i), unless(Mistake::kReadBucketRelaxed));
    if (bucket == kEmpty) return false;
    if (bucket != kTombstone) {
      found = readChecked(slotOf(bucket), mix(mix(key, i), bucket));
      const bool matches = found.key == key || p_.has(Mistake::kKeyUnchecked);
      // An entry of another key may lead to the key's slot before its own entry is there: who
      // took that would not find the key again.
      if (matches && !p_.has(Mistake::kBucketUnchecked) &&
          load(file.entry(i), Order::kRelaxed) != bucket) {
        continue;
      }
      if (matches && found.state == kLive) return true;
    }
    ++i;
  }
  return false;
}

bool Reader::mapNewerIndex() {
  if (p_.has(Mistake::kIndexGenerationUnchecked)) return false;
  const Value generation = load(At::kIndexGeneration, unless(Mistake::kReadIndexGenerationRelaxed));
  if (generation <= m_.file(index_).generation) return false;
  index_ = load(At::kIndexName) - 1;
  const File& file = m_.file(index_);
  if (load(file.magic) != 1) corrupt("the index has no magic");
  if (file.generation < generation) corrupt("the index is older than indexGen says");
  return true;
}

bool Reader::get(Value key, Record& found) {
  do {
    if (probe(key, found)) return true;
  } while (mapNewerIndex());
  return false;
}

bool Reader::readHandle(Value slot, Value key, Record& found) {
  found = readChecked(slot, mix(key, 1000 + slot));
  if (found.key == key && found.state == kLive) return true;
  if (found.key == key || p_.has(Mistake::kHandleTrusted)) return false;
  return get(key, found);
}

}  // namespace Zorbe::Model
