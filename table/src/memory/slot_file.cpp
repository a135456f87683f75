// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "memory/table_files.h"

namespace Zorbe::Table {

namespace {

// Address space for a table to grow in, where there is enough of it: costs nothing but numbers.
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

Schema schemaIn(const Place& place, const std::string& path, const SlotsHeader& header) {
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

}  // namespace

SlotFile::SlotFile(const Place& place, File file, Access access, const Schema& schema,
                   uint64_t maxRecords, MappingHints hints)
    : place_(place),
      file_(std::move(file)),
      schema_(schema),
      geometry_(schema.keyBytes, schema.valueBytes),
      mapping_(place, file_, access, static_cast<uint64_t>(file_.status().st_size),
               reserveFor(geometry_, maxRecords), hints),
      memory_(mapping_.at<char>(0), geometry_) {}

SlotFile SlotFile::create(const Place& place, File file, const Spec& spec) {
  file.allocate(Geometry(spec.schema.keyBytes, spec.schema.valueBytes).fileBytes(spec.capacity));
  SlotFile slots(place, std::move(file), Access::kWrite, spec.schema, spec.maxRecords, spec.hints);
  slots.identity_ = spec.identity;
  slots.capacity_ = spec.capacity;
  SlotsHeader& header = slots.memory_.header();
  fillPrologue(header.prologue, spec.identity, 0, 0);
  release(header.keyBytes, spec.schema.keyBytes);
  release(header.valueBytes, spec.schema.valueBytes);
  release(header.maxRecords, spec.maxRecords);
  release(header.descriptionBytes, spec.schema.description.size());
  storeText(header.description, spec.schema.description);
  release(header.published, spec.sequence);
  release(header.indexGeneration, 1);
  release(header.logGeneration, 1);
  release(header.capacity, spec.capacity);
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
  SlotFile slots(place, std::move(*file), access, schema, acquire(header.maxRecords), hints);
  slots.identity_ = identity;
  slots.capacity_ = acquire(header.capacity);
  slots.checkCapacity(slots.capacity_);
  found = Found::kTable;
  return slots;
}

void SlotFile::complete() {
  release(memory_.header().prologue.magic, magicOf(kSlotsMagic));
}

// A table's file has its room allocated: what is mostly holes was not made by a writer, and
// reading it would fill the memory.
void SlotFile::checkCapacity(uint64_t capacity) const {
  const struct stat status = file_.status();
  if (capacity == 0 || capacity > kMaxSlots ||
      geometry_.fileBytes(capacity) > static_cast<uint64_t>(status.st_size)) {
    failCorrupt(place_, file_.path() + " tells of " + std::to_string(capacity) +
                            " slots in a file of " + std::to_string(status.st_size) + " bytes");
  }
  if (static_cast<uint64_t>(status.st_blocks) * 512 < geometry_.fileBytes(capacity) / 2) {
    failCorrupt(place_, file_.path() + " is mostly holes");
  }
}

std::optional<uint64_t> SlotFile::currentCapacity() const {
  const uint64_t capacity = acquire(memory_.header().capacity);
  checkCapacity(capacity);
  if (geometry_.fileBytes(capacity) > mapping_.size()) return std::nullopt;
  return capacity;
}

void SlotFile::grow(uint64_t capacity) {
  const uint64_t bytes = geometry_.fileBytes(capacity);
  file_.allocate(bytes);
  mapping_.extend(place_, bytes);
  memory_ = SlotMemory(mapping_.at<char>(0), geometry_);
  release(memory_.header().capacity, capacity);
  capacity_ = capacity;
}

}  // namespace Zorbe::Table
