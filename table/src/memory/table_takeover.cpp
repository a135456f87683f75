// SPDX-License-Identifier: MIT
//
// Continuing the table of a writer that was killed at any instruction, or of one that ended.
// Only the store that it was killed in is undone; everything else that it had begun is kept and
// published. Killed here, too, the next writer does the same again.
#include <zorbe/exceptions.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "memory/table_writer.h"

namespace Zorbe::Table {

namespace {

// More changes than any table has: a larger number is not a sequence.
constexpr uint64_t kMaxSequence = uint64_t{1} << 62;

}  // namespace

void TableWriter::takeOver() {
  if (!slots_->memory().undoStore(capacity())) {
    failCorrupt(options_.place, "the image of a record that was being written is not one");
  }
  release(header().capacity, capacity());
  const bool hasIndex = openIndex();
  const bool hasLog = openLog();
  appended_ = relaxed(header().published);
  if (hasLog) keepFinishedStores();
  const uint64_t newest = adoptSlots();
  if (!hasIndex || !isIndexWhole()) rebuildIndex(relaxed(header().indexGeneration) + 1);
  // The newest record has the last sequence; another `published` was overwritten.
  const bool isEmpty = allocator_.used() == 0 && appended_ <= kMaxSequence;
  const uint64_t last = isEmpty ? appended_ : newest;
  const bool isLogWhole = hasLog && last == appended_;
  appended_ = last;
  if (!isLogWhole) startNewLog();
  release(header().retired, 0);
  setStatus({});  // of the earlier writer's connections
  published_ = appended_;
  release(header().published, published_);
}

// The file decides which generation it is: a writer that was killed between the new index and its
// generation's store leaves the next one in place, and the store may have been overwritten.
bool TableWriter::openIndex() {
  try {
    std::optional<IndexFile> index =
        IndexFile::open(options_.place, Access::kWrite, slots_->identity(), 0);
    if (!index) return false;
    index_.emplace(std::move(*index));
  } catch (const CorruptionDetectedException&) {
    return false;  // it is built again from the slots
  }
  release(header().indexGeneration, index_->generation());
  return true;
}

bool TableWriter::openLog() {
  const uint64_t generation = relaxed(header().logGeneration);
  try {
    std::optional<LogFile> log =
        LogFile::open(options_.place, Access::kWrite, slots_->identity(), generation);
    if (!log) return false;
    log_.emplace(std::move(*log));
  } catch (const CorruptionDetectedException&) {
    return false;  // readers read everything again
  }
  removeFile(options_.place, logFileOf(generation + 1));
  return true;
}

// Changes that were not published. The log's entry is stored first, the index's last, so a slot
// may lack the latter; also a slot whose former key was removed from the index for a new one that
// was never stored.
void TableWriter::keepFinishedStores() {
  const SlotMemory& memory = slots_->memory();
  for (uint64_t step = 0; step < log_->entries(); ++step) {
    const uint64_t sequence = appended_ + 1;
    const uint64_t entry = relaxed(log_->entry(sequence));
    const auto slot = static_cast<uint32_t>(entry);
    if (!hasTag(entry, sequence) || slot >= capacity()) return;
    if (index_ && memory.stateOf(slot) != kFree) enterIfMissing(slot);
    if (memory.sequenceOf(slot) < sequence) return;  // not begun, or undone
    appended_ = sequence;
  }
}

void TableWriter::enterIfMissing(uint32_t slot) {
  uint64_t key[kMaxKeyWords];
  readKey(slot, key);
  if (!find(key, hash(key))) static_cast<void>(index_->memory().insert(hash(key), slot));
}

// Reads the content of the slots. Returns the newest sequence among them.
uint64_t TableWriter::adoptSlots() {
  const SlotMemory& memory = slots_->memory();
  allocator_.extend(capacity());
  std::vector<std::pair<uint64_t, uint32_t>> erased;
  uint64_t newest = 0;
  size_ = 0;
  for (uint32_t slot = 0; slot < capacity(); ++slot) {
    const uint64_t state = memory.stateOf(slot);
    const uint64_t sequence = memory.sequenceOf(slot);
    if (memory.isBeingStored(slot) || state > kErased || sequence > kMaxSequence) {
      failCorrupt(options_.place, "slot " + std::to_string(slot) + " holds no record");
    }
    if (state == kFree) continue;
    allocator_.setUsed(slot);
    newest = std::max(newest, sequence);
    if (state == kErased) erased.emplace_back(sequence, slot);
    size_ += state == kLive ? 1 : 0;
  }
  std::sort(erased.begin(), erased.end());
  for (const auto& [sequence, slot] : erased) static_cast<void>(allocator_.release(slot));
  return newest;
}

// Each slot in use is found by its key, and there are no further entries: a key that was not found
// would get a second slot.
bool TableWriter::isIndexWhole() {
  const IndexMemory& index = index_->memory();
  uint64_t entries = 0;
  usedBuckets_ = 0;
  for (uint64_t bucket = 0; bucket < index.buckets(); ++bucket) {
    const uint64_t entry = relaxed(index.entry(bucket));
    usedBuckets_ += entry != kEmptyBucket ? 1 : 0;
    entries += entry != kEmptyBucket && entry != kTombstone ? 1 : 0;
  }
  if (entries != allocator_.used()) return false;
  uint64_t key[kMaxKeyWords];
  for (uint32_t slot = 0; slot < capacity(); ++slot) {
    if (slots_->memory().stateOf(slot) == kFree) continue;
    readKey(slot, key);
    if (find(key, hash(key)) != slot) return false;
  }
  return true;
}

void TableWriter::startNewLog() {
  const uint64_t generation = relaxed(header().logGeneration) + 1;
  LogFile fresh = LogFile::create(options_.place, slots_->identity(), generation,
                                  wantedLogEntries(), appended_ + 1, options_.mode);
  fresh.complete();
  release(header().logGeneration, generation);
  log_.emplace(std::move(fresh));
  removeFile(options_.place, logFileOf(generation + 1));
}

// A process with write access may have overwritten constant words. Readers recover when they are
// stored again.
void TableWriter::repairHeaders() {
  const auto repair = [](Word& word, uint64_t value) {
    if (relaxed(word) != value) release(word, value);
  };
  SlotsHeader& head = header();
  const Identity& identity = slots_->identity();
  repair(head.keyBytes, slots_->schema().keyBytes);
  repair(head.valueBytes, slots_->schema().valueBytes);
  repair(head.descriptionBytes, slots_->schema().description.size());
  repair(head.maxRecords, options_.maxRecords);
  repair(head.published, published_);
  repair(head.indexGeneration, index_->generation());
  repair(head.logGeneration, log_->generation());
  repair(head.capacity, capacity());
  repair(head.retired, 0);
  repair(head.prologue.byteOrder, kByteOrder);
  repair(head.prologue.version, kVersion);
  repair(head.prologue.incarnation, identity.incarnation);
  repair(head.prologue.bootLow, identity.bootLow);
  repair(head.prologue.bootHigh, identity.bootHigh);
  repair(head.prologue.magic, magicOf(kSlotsMagic));
}

}  // namespace Zorbe::Table
