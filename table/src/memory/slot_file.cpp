// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "memory/table_files.h"

namespace Zorbe::Table {

namespace {

// Address space that is reserved for a table to grow, where there is enough of it; it takes no
// memory.
uint64_t reserveFor(const Geometry& geometry, uint64_t maxRecords) {
  constexpr uint64_t kReserve = sizeof(void*) == 8 ? uint64_t{64} << 30 : uint64_t{64} << 20;
  if (maxRecords == 0) return kReserve;
  // An erased record keeps its slot for a while, so there may be more slots than records.
  return std::min(kReserve, geometry.fileBytes(maxRecords + maxRecords / 2 + kMinLogEntries));
}

void storeText(Word* words, const std::string& text) {
  for (size_t at = 0; at < text.size(); at += 8) {
    uint64_t word = 0;
    std::memcpy(&word, text.data() + at, std::min<size_t>(8, text.size() - at));
    release(words[at / 8], word);
  }
}

std::string loadText(const Word* words, size_t bytes) {
  std::string text(bytes, '\0');
  for (size_t at = 0; at < bytes; at += 8) {
    const uint64_t word = acquire(words[at / 8]);
    std::memcpy(text.data() + at, &word, std::min<size_t>(8, bytes - at));
  }
  return text;
}

// The slots that the file has room for. A writer that takes over relies on it and not on the
// header, whose number somebody may have overwritten. Nothing when a part of the file is not
// allocated.
std::optional<uint64_t> wholeCapacity(const File& file, const Geometry& geometry) {
  const auto length = static_cast<uint64_t>(file.status().st_size);
  if (length <= geometry.slotsOffset || file.allocated() < length) return std::nullopt;
  return std::min((length - geometry.slotsOffset) / geometry.slotBytes, kMaxSlots);
}

}  // namespace

SlotFile::SlotFile(const Place& place, File file, Access access, const Schema& schema,
                   uint64_t capacity, uint64_t maxRecords, MappingHints hints)
    : place_(place),
      file_(std::move(file)),
      schema_(schema),
      geometry_(schema.keyBytes, schema.valueBytes),
      capacity_(capacity),
      mapping_(place, file_, access, geometry_.fileBytes(capacity),
               reserveFor(geometry_, maxRecords), hints),
      memory_(mapping_.at<char>(0), geometry_) {}

SlotFile SlotFile::create(const Place& place, File file, const Settings& settings) {
  const Geometry geometry(settings.schema.keyBytes, settings.schema.valueBytes);
  file.allocate(0, geometry.fileBytes(settings.capacity));
  SlotFile slots(place, std::move(file), Access::kWrite, settings.schema, settings.capacity,
                 settings.maxRecords, settings.hints);
  slots.identity_ = settings.identity;
  SlotsHeader& header = slots.memory_.header();
  fillPrologue(header.prologue, settings.identity, 0, 0);
  release(header.keyBytes, settings.schema.keyBytes);
  release(header.valueBytes, settings.schema.valueBytes);
  release(header.maxRecords, settings.maxRecords);
  release(header.descriptionBytes, settings.schema.description.size());
  storeText(header.description, settings.schema.description);
  release(header.published, settings.sequence);
  release(header.indexGeneration, 1);
  release(header.logGeneration, 1);
  release(header.capacity, settings.capacity);
  release(slots.memory_.image().slot, kNoSlot);
  return slots;
}

std::optional<SlotFile> SlotFile::open(const Place& place, Access access, Found& found,
                                       MappingHints hints) {
  found = Found::kNothing;
  std::optional<File> file = File::open(place, kSlotsFile, access);
  if (!file) return std::nullopt;
  const std::string path = file->path();
  const auto length = static_cast<uint64_t>(file->status().st_size);
  if (length == 0) return std::nullopt;  // its writer is about to fill it
  if (length < sizeof(SlotsHeader)) failCorrupt(place, path + " is shorter than its header");
  const Mapping head(place, *file, Access::kRead, sizeof(SlotsHeader), 0);
  const SlotsHeader& header = *head.at<SlotsHeader>(0);
  if (!isComplete(place, path, header.prologue, kSlotsMagic)) return std::nullopt;
  const Identity identity = identityIn(header.prologue);
  if (!identity.isSameBoot(currentBoot(place))) {
    found = Found::kOtherBoot;
    return std::nullopt;
  }
  const Schema schema = schemaIn(place, path, header);
  const Geometry geometry(schema.keyBytes, schema.valueBytes);
  const uint64_t stored = acquire(header.capacity);
  const uint64_t capacity =
      access == Access::kWrite ? wholeCapacity(*file, geometry).value_or(stored) : stored;
  checkCapacity(place, *file, geometry, capacity);
  SlotFile slots(place, std::move(*file), access, schema, capacity, acquire(header.maxRecords),
                 hints);
  slots.identity_ = identity;
  found = Found::kTable;
  return slots;
}

Schema SlotFile::schemaIn(const Place& place, const std::string& path, const SlotsHeader& header) {
  const uint64_t key = acquire(header.keyBytes);
  const uint64_t value = acquire(header.valueBytes);
  const uint64_t description = acquire(header.descriptionBytes);
  if (key == 0 || key > kMaxKeyBytes || value > kMaxValueBytes ||
      description > kDescriptionWords * 8) {
    failCorrupt(place, path + " has keys of " + std::to_string(key) + " bytes, values of " +
                           std::to_string(value) + " and a description of " +
                           std::to_string(description));
  }
  return {static_cast<uint32_t>(key), static_cast<uint32_t>(value),
          loadText(header.description, static_cast<size_t>(description))};
}

void SlotFile::complete() {
  release(memory_.header().prologue.magic, magicOf(kSlotsMagic));
}

void SlotFile::checkCapacity(const Place& place, const File& file, const Geometry& geometry,
                             uint64_t capacity) {
  const auto length = static_cast<uint64_t>(file.status().st_size);
  if (capacity == 0 || capacity > kMaxSlots || geometry.fileBytes(capacity) > length) {
    failCorrupt(place, file.path() + " tells of " + std::to_string(capacity) +
                           " slots in a file of " + std::to_string(length) + " bytes");
  }
  if (file.isMostlyHoles(geometry.fileBytes(capacity))) {
    failCorrupt(place, file.path() + " is mostly holes");
  }
}

std::optional<uint64_t> SlotFile::currentCapacity() const {
  const uint64_t capacity = acquire(memory_.header().capacity);
  checkCapacity(place_, file_, geometry_, capacity);
  if (geometry_.fileBytes(capacity) > mapping_.size()) return std::nullopt;
  return capacity;
}

SlotFile SlotFile::mapAgain(MappingHints hints) const {
  const SlotsHeader& header = memory_.header();
  const uint64_t capacity = acquire(header.capacity);
  checkCapacity(place_, file_, geometry_, capacity);
  SlotFile slots(place_, file_.duplicate(), Access::kRead, schema_, capacity,
                 acquire(header.maxRecords), hints);
  slots.identity_ = identity_;
  return slots;
}

void SlotFile::grow(uint64_t capacity) {
  const uint64_t end = geometry_.fileBytes(capacity_);
  const uint64_t bytes = geometry_.fileBytes(capacity);
  const auto length = static_cast<uint64_t>(file_.status().st_size);
  file_.allocate(end, bytes);
  mapping_.extend(place_, bytes);
  memory_ = SlotMemory(mapping_.at<char>(0), geometry_);
  // Words after the last slot that another process has stored would be taken for records.
  for (uint64_t at = end; at < std::min(length, bytes); at += 8) {
    Word& word = *mapping_.at<Word>(at);
    if (relaxed(word) != 0) release(word, 0);
  }
  release(memory_.header().capacity, capacity);
  capacity_ = capacity;
}

}  // namespace Zorbe::Table
