// SPDX-License-Identifier: MIT
#include "writer.h"

#include <algorithm>

namespace Zorbe::Model {

void Writer::store(Location location, Value value, Mistake relaxed) {
  m_.store(location, value, relaxed == Mistake::kNone || !p_.has(relaxed));
}

const File& Writer::log() const {
  const Value generation = load(At::kLogGeneration);
  const Value name = load(At::kLogName + static_cast<Location>(generation % 2));
  if (name == 0 || m_.file(name - 1).generation != generation) {
    throw Violation("writer: the log that logGen names is not there");
  }
  return m_.file(name - 1);
}

void Writer::format() {
  appended_ = p_.sequence;
  const Value index = m_.makeFile("buckets.1", 1, p_.buckets, 0);
  const Value log = m_.makeFile("log.1", 1, p_.logCapacity, appended_ + 1);
  store(m_.file(index).magic, 1);
  store(m_.file(log).magic, 1);
  store(At::kImageSlot, kNoSlot);
  store(At::kFileSize, p_.slots);
  store(At::kCapacity, p_.slots);
  store(At::kIndexGeneration, 1);
  store(At::kLogGeneration, 1);
  store(At::kPublished, appended_);
  store(At::kLogName + 1, log + 1);
  store(At::kIndexName, index + 1);
  m_.quiet.push_back(m_.size());
}

void Writer::run(const std::string& step, size_t number) {
  const char kind = step[0];
  const Value key = step.size() > 1 ? static_cast<Value>(step[1] - 'A' + 1) : 0;
  const auto value = static_cast<Value>(100 + m_.size());
  const size_t mine = m_.operations.size();
  m_.operations.push_back({number, kind, key, value, appended_ + 1, m_.size(),
                           Operation::kUnfinished, Operation::kUnfinished});
  switch (kind) {
    case 'p':
      put(key, value);
      break;
    case 'e':
      erase(key);
      break;
    case '!':
      publish();
      break;
    case 'R':
      rebuild();
      break;
    case 'L':
      enlargeLog();
      break;
    default:
      throw std::logic_error("no such step: " + step);
  }
  Operation& done = m_.operations[mine];
  done.end = m_.size();
  if (done.changesRecord() && appended_ < done.sequence) {  // there was nothing to do
    done.kind = '-';
    done.sequence = 0;
  }
  m_.quiet.push_back(m_.size());
}

void Writer::publish() {
  if (load(At::kPublished) < appended_) {
    store(At::kPublished, appended_, Mistake::kRelaxedPublished);
  }
}

void Writer::put(Value key, Value value) {
  const Value n = appended_ + 1;
  const Value known = find(key);
  const bool elsewhere = p_.has(Mistake::kReviveElsewhere);
  const bool update = known != kNoSlot && !(elsewhere && record(known).state == kErased);
  Value slot = update ? known : freeSlot(n);
  bool growLater = false;
  if (slot == kNoSlot) {
    if (load(At::kCapacity) >= p_.maxSlots) return;  // refused: the table is full
    slot = load(At::kCapacity);
    growLater = p_.has(Mistake::kSlotBeforeCapacity);
    if (!growLater) grow();
  }
  if (!update && !roomInIndex(record(slot).state == kErased)) rebuild();
  const Value unpublished = n - load(At::kPublished);
  if (unpublished > log().size / 4 && !p_.has(Mistake::kNoForcedPublish)) publish();
  const Record stored{kLive, n, key, value};
  if (update) {
    if (!p_.has(Mistake::kLogAfterSlot)) logChange(n, slot);
    storeSlot(slot, stored);
    if (p_.has(Mistake::kLogAfterSlot)) logChange(n, slot);
  } else {
    storeNew(slot, stored);
  }
  if (growLater) grow();
  appended_ = n;
}

void Writer::erase(Value key) {
  const Value slot = find(key);
  if (slot == kNoSlot || record(slot).state == kErased) return;
  const Value n = appended_ + 1;
  if (n - load(At::kPublished) > log().size / 4 && !p_.has(Mistake::kNoForcedPublish)) {
    publish();
  }
  logChange(n, slot);
  storeSlot(slot, {kErased, n, key, 0});
  if (p_.has(Mistake::kEraseDropsEntry)) storeTombstone(slot);
  appended_ = n;
}

void Writer::grow() {
  const Value capacity = load(At::kCapacity) + 1;
  const bool early = p_.has(Mistake::kCapacityBeforeFile);
  if (early) store(At::kCapacity, capacity, Mistake::kRelaxedCapacity);
  store(At::kFileSize, capacity);
  if (!early) store(At::kCapacity, capacity, Mistake::kRelaxedCapacity);
}

void Writer::rebuild() {
  const File old = index();
  const Value generation = load(At::kIndexGeneration) + 1;
  const bool inPlace = p_.has(Mistake::kRebuildInPlace);
  const Value number =
      inPlace ? load(At::kIndexName) - 1
              : m_.makeFile("buckets." + std::to_string(generation), generation, old.size + 1, 0);
  const File& made = m_.file(number);
  Value filled = 0;
  if (inPlace) {
    for (Value i = 0; i < made.size; ++i) store(made.entry(i), kEmpty);
  }
  for (Value slot = 0; slot < load(At::kCapacity); ++slot) {
    const Value state = record(slot).state;
    if (state == kUnused || (state == kErased && p_.has(Mistake::kRebuildWithoutErased))) continue;
    if (filled == made.size) throw Violation("writer: the new index is full");
    store(made.entry(filled++), bucketOf(slot), Mistake::kRelaxedFileContents);
  }
  if (inPlace) return;
  const bool early = p_.has(Mistake::kIndexGenerationBeforeName);
  if (early) store(At::kIndexGeneration, generation);
  store(made.magic, 1, Mistake::kRelaxedFileContents);
  store(At::kIndexName, number + 1, Mistake::kRelaxedFileContents);
  if (!early) store(At::kIndexGeneration, generation, Mistake::kRelaxedIndexGeneration);
}

void Writer::enlargeLog() {
  const File old = log();
  const Value generation = old.generation + 1;
  Value first = appended_ >= old.size ? appended_ - old.size + 1 : 1;
  if (!p_.has(Mistake::kFirstTooLow)) first = std::max(first, old.first);
  const Value number =
      m_.makeFile("log." + std::to_string(generation), generation, old.size * 2, first);
  const File& made = m_.file(number);
  if (p_.has(Mistake::kLogCopyTooShort)) ++first;
  for (Value n = first; n <= appended_; ++n) {
    store(made.entry(n % made.size), load(old.entry(n % old.size)), Mistake::kRelaxedFileContents);
  }
  const auto name = At::kLogName + static_cast<Location>(generation % 2);
  const bool early = p_.has(Mistake::kLogGenerationBeforeName);
  if (early) store(At::kLogGeneration, generation);
  store(made.magic, 1, Mistake::kRelaxedFileContents);
  store(name, number + 1, Mistake::kRelaxedFileContents);
  if (!early) store(At::kLogGeneration, generation, Mistake::kRelaxedLogGeneration);
  store(At::kLogName + static_cast<Location>(old.generation % 2), 0);
}

}  // namespace Zorbe::Model
