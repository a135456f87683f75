// SPDX-License-Identifier: MIT
//
// Room for new keys: slots, buckets, log entries. Everything here either succeeds or throws
// before the table has changed.
#include <algorithm>

#include "memory/table_writer.h"

namespace Zorbe::Table {

namespace {

// Of eight buckets: beyond that, the index is built again, larger or without its tombstones.
constexpr uint64_t kUsedBuckets = 7;

uint64_t powerOfTwoUpTo(uint64_t value) {
  uint64_t power = 1;
  while (power <= value / 2) power *= 2;
  return power;
}

uint64_t powerOfTwoFrom(uint64_t value) {
  const uint64_t power = powerOfTwoUpTo(value);
  return power == value ? power : power * 2;
}

}  // namespace

void TableWriter::checkLimit() const {
  if (options_.maxRecords == 0 || size_ < options_.maxRecords) return;
  throw Error(ErrorCode::full, options_.place.table, "",
              "it holds " + std::to_string(size_) +
                  " records, which is Options::maxRecords; erase records or raise the limit");
}

// The slot of a new key.
uint32_t TableWriter::makeRoom() {
  std::optional<uint32_t> slot = allocator_.candidate(slots_->memory(), oldestLogged());
  if (!slot) {
    slot = static_cast<uint32_t>(capacity());
    growRecords();
  }
  const uint64_t buckets = index_->memory().buckets();
  if ((usedBuckets_ + 1) > buckets / 8 * kUsedBuckets) rebuildIndex(index_->generation() + 1);
  return *slot;
}

// Grows by half: few steps, and little unused memory.
void TableWriter::growRecords() {
  const uint64_t slots = capacity();
  if (slots >= options_.maxSlots) {
    throw Error(ErrorCode::full, options_.place.table, "",
                "it has " + std::to_string(slots) + " slots, the most that its format allows");
  }
  uint64_t grown = slots + std::max<uint64_t>(slots / 2, kMinLogEntries);
  // Erased records keep their slots for as long as the log holds them: so many more at most.
  if (options_.maxRecords != 0) {
    grown = std::min(grown, std::max(slots + 1, options_.maxRecords + log_->entries()));
  }
  grown = std::min(grown, options_.maxSlots);
  allocator_.prepare(grown);
  slots_->grow(grown);
  allocator_.extend(grown);
  try {
    enlargeLog();
  } catch (const Error&) {
    // A log that is short for its table only makes slow followers read everything again.
  }
}

void TableWriter::rebuildIndex(uint64_t generation) {
  IndexFile fresh =
      IndexFile::create(options_.place, slots_->identity(), generation, capacity(), options_.mode);
  enterSlots(fresh.memory());
  fresh.complete();
  release(header().indexGeneration, generation);
  index_.emplace(std::move(fresh));
  usedBuckets_ = allocator_.used();
}

// Live and erased ones: an erased key comes back to its slot.
void TableWriter::enterSlots(const IndexMemory& index) const {
  const SlotMemory& memory = slots_->memory();
  uint64_t key[kMaxKeyWords];
  for (uint32_t slot = 0; slot < capacity(); ++slot) {
    if (memory.stateOf(slot) == kFree) continue;
    readKey(slot, key);
    const Hash hash = index.hash(key, memory.geometry().keyWords);
    const bool isTwice =
        index.probe(hash, [&](uint64_t, uint32_t other) { return memory.keyIs(other, key); });
    if (isTwice) failCorrupt(options_.place, "slot " + std::to_string(slot) + " repeats a key");
    static_cast<void>(index.insert(hash, slot));
  }
}

uint64_t TableWriter::wantedLogEntries() const {
  const uint64_t entries = options_.logEntries != 0 ? powerOfTwoFrom(options_.logEntries)
                                                    : powerOfTwoUpTo(capacity() / 2);
  return std::clamp(entries, options_.logEntries != 0 ? uint64_t{4} : kMinLogEntries,
                    kMaxLogEntries);
}

void TableWriter::enlargeLog() {
  const uint64_t entries = wantedLogEntries();
  if (entries > log_->entries()) replaceLog(entries);
}

// The old log is not written any more: a reader that still maps it finds its entries.
void TableWriter::replaceLog(uint64_t entries) {
  const uint64_t generation = log_->generation() + 1;
  const uint64_t held = std::min(log_->entries(), appended_);
  const uint64_t first = std::max(log_->first(), appended_ - held + 1);
  LogFile fresh = LogFile::create(options_.place, slots_->identity(), generation, entries, first,
                                  options_.mode);
  for (uint64_t sequence = first; sequence <= appended_; ++sequence) {
    release(fresh.entry(sequence), relaxed(log_->entry(sequence)));
  }
  fresh.complete();
  release(header().logGeneration, generation);
  const char* former = logFileOf(log_->generation());
  log_.emplace(std::move(fresh));
  removeFile(options_.place, former);
}

void TableWriter::restoreFiles() {
  const Place& place = options_.place;
  if (!index_->isInPlace(place)) rebuildIndex(index_->generation() + 1);
  if (!log_->isInPlace(place)) replaceLog(log_->entries());
}

}  // namespace Zorbe::Table
