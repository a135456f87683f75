// SPDX-License-Identifier: MIT
#include "memory/table_writer.h"

#include "memory/clock.h"
#include "memory/status.h"

namespace Zorbe::Table {

TableWriter::TableWriter(const WriterOptions& options) : options_(options) {}

Hash TableWriter::hash(const uint64_t* key) const {
  return index_->memory().hash(key, slots_->memory().geometry().keyWords);
}

void TableWriter::readKey(uint32_t slot, uint64_t* key) const {
  const SlotMemory& memory = slots_->memory();
  const uint32_t words = memory.geometry().keyWords;
  for (uint32_t i = 0; i < words; ++i) key[i] = relaxed(memory.slot(slot).key[i]);
}

// The slot of a key, live or erased.
std::optional<uint32_t> TableWriter::find(const uint64_t* key, Hash hash) const {
  std::optional<uint32_t> found;
  const SlotMemory& memory = slots_->memory();
  static_cast<void>(index_->memory().probe(hash, [&](uint64_t, uint32_t slot) {
    if (slot >= capacity() || !memory.keyIs(slot, key)) return false;
    found = slot;
    return true;
  }));
  return found;
}

void TableWriter::put(const uint64_t* key, const void* value) {
  const SlotMemory& memory = slots_->memory();
  const std::optional<uint32_t> slot = find(key, hash(key));
  const bool isNew = !slot || memory.stateOf(*slot) != kLive;
  if (isNew) checkLimit();
  const uint32_t place = slot ? *slot : makeRoom();
  publishBeforeTheLogIsFull();
  const uint64_t sequence = appended_ + 1;
  noteChange(sequence, place);
  if (slot) {
    memory.store(place, {kLive, sequence, key, value});
  } else {
    storeNew(place, sequence, key, value);
  }
  if (isNew && allocator_.take(place)) ++size_;
  appended_ = sequence;
}

// The order matters: a reader never finds an entry of the index before its record, and a writer
// that takes over finds an unfinished change by the log's entry.
void TableWriter::storeNew(uint32_t slot, uint64_t sequence, const uint64_t* key,
                           const void* value) {
  const SlotMemory& memory = slots_->memory();
  if (memory.stateOf(slot) == kErased) entombKeyOf(slot);
  memory.store(slot, {kLive, sequence, key, value});
  const std::optional<bool> wasTombstone = index_->memory().insert(hash(key), slot);
  if (!wasTombstone.value_or(false)) ++usedBuckets_;
}

void TableWriter::entombKeyOf(uint32_t slot) {
  uint64_t key[kMaxKeyWords];
  readKey(slot, key);
  static_cast<void>(index_->memory().entomb(hash(key), slot));
}

bool TableWriter::erase(const uint64_t* key) {
  const SlotMemory& memory = slots_->memory();
  const std::optional<uint32_t> slot = find(key, hash(key));
  if (!slot || memory.stateOf(*slot) != kLive) return false;
  publishBeforeTheLogIsFull();
  const uint64_t sequence = appended_ + 1;
  noteChange(sequence, *slot);
  memory.store(*slot, {kErased, sequence, key, nullptr});
  if (allocator_.release(*slot)) --size_;
  appended_ = sequence;
  return true;
}

void TableWriter::noteChange(uint64_t sequence, uint32_t slot) {
  release(log_->entry(sequence), packEntry(sequence, slot));
}

// What the log does not hold when the next change is in it.
uint64_t TableWriter::oldestLogged() const {
  const uint64_t next = appended_ + 1;
  return next >= log_->entries() ? next - log_->entries() + 1 : 0;
}

void TableWriter::publishBeforeTheLogIsFull() {
  if (appended_ + 1 - published_ > log_->entries() / 4) static_cast<void>(publish());
}

bool TableWriter::publish() {
  if (published_ == appended_) return false;
  published_ = appended_;
  release(header().publishedAt, nanosecondsOf(CLOCK_REALTIME));
  release(header().published, published_);
  return true;
}

bool TableWriter::get(const uint64_t* key, void* value) const {
  const SlotMemory& memory = slots_->memory();
  const std::optional<uint32_t> slot = find(key, hash(key));
  if (!slot || memory.stateOf(*slot) != kLive) return false;
  if (value == nullptr) return true;
  uint64_t ignored[kMaxKeyWords];
  RecordOut out{ignored, value, memory.geometry().valueBytes};
  return memory.read(*slot, out);
}

bool TableWriter::scan(uint64_t& cursor, uint64_t* key, void* value) const {
  const SlotMemory& memory = slots_->memory();
  while (cursor < capacity()) {
    const auto slot = static_cast<uint32_t>(cursor++);
    if (memory.stateOf(slot) != kLive) continue;
    RecordOut out{key, value, memory.geometry().valueBytes};
    return memory.read(slot, out);
  }
  return false;
}

void TableWriter::setOrigin(Origin origin) {
  release(header().origin, OriginWord::pack(origin, nanosecondsOf(CLOCK_REALTIME)));
}

void TableWriter::setStatus(const Status& status) {
  storeStatus(header(), status);
}

bool TableWriter::isInPlace() const {
  return lock_->isAt(kSlotsFile);
}

}  // namespace Zorbe::Table
