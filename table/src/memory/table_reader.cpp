// SPDX-License-Identifier: MIT
#include "memory/table_reader.h"

#include "memory/table_writer.h"

namespace Zorbe::Table {

namespace {

// How often to open the table again while a writer replaces it, which takes a few steps.
constexpr int kOpenAttempts = 8;

// New indexes that may appear during one search.
constexpr int kIndexAttempts = 64;

}  // namespace

TableReader::TableReader(const ReaderOptions& options, std::shared_ptr<const SlotFile> slots)
    : options_(options),
      slots_(std::move(slots)),
      capacity_(slots_->capacity()),
      valueBytes_(slots_->schema().valueBytes) {}

std::unique_ptr<TableReader> TableReader::open(const ReaderOptions& options) {
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    SlotFile::Found found{};
    std::optional<SlotFile> slots =
        SlotFile::open(options.place, Access::kRead, found, options.hints);
    if (!slots) return nullptr;
    auto shared = std::make_shared<const SlotFile>(std::move(*slots));
    std::unique_ptr<TableReader> reader(new TableReader(options, std::move(shared)));
    if (reader->followIndex()) return reader;
  }
  return nullptr;
}

std::unique_ptr<TableReader> TableReader::clone() const {
  std::unique_ptr<TableReader> reader(new TableReader(options_, slots_));
  reader->capacity_ = capacity_;
  reader->valueBytes_ = valueBytes_;
  static_cast<void>(reader->followIndex());  // without one it searches the slots
  return reader;
}

std::unique_ptr<TableReader> TableReader::over(const TableWriter& writer) {
  ReaderOptions options;
  options.place = writer.options().place;
  const std::shared_ptr<const SlotFile> slots(&writer.slots(), [](const SlotFile*) {});
  std::unique_ptr<TableReader> reader(new TableReader(options, slots));
  static_cast<void>(reader->followIndex());
  return reader;
}

void TableReader::failCorrupt(const std::string& what) const {
  Table::failCorrupt(options_.place, what);
}

bool TableReader::get(const uint64_t* key, void* value) {
  uint32_t slot = 0;
  return lookUp(key, value, slot) == Lookup::kFound;
}

std::optional<uint32_t> TableReader::find(const uint64_t* key) {
  uint32_t slot = 0;
  if (lookUp(key, nullptr, slot) != Lookup::kFound) return std::nullopt;
  return slot;
}

bool TableReader::read(uint32_t slot, const uint64_t* key, void* value) {
  switch (examine(slot, key, value)) {
    case Lookup::kFound:
      return true;
    case Lookup::kErased:
      return false;
    case Lookup::kMissing:
      break;
  }
  return get(key, value);
}

// A key that is not in the mapped index may be in a newer one.
TableReader::Lookup TableReader::lookUp(const uint64_t* key, void* value, uint32_t& slot) {
  for (int attempt = 0; attempt < kIndexAttempts; ++attempt) {
    if (!index_) return lookUpInSlots(key, value, slot);
    const Lookup result = lookUpIn(index_->memory(), key, value, slot);
    if (result != Lookup::kMissing) return result;
    if (acquire(header().indexGeneration) <= index_->generation()) return result;
    if (!followIndex()) break;
  }
  return lookUpInSlots(key, value, slot);
}

TableReader::Lookup TableReader::lookUpIn(const IndexMemory& index, const uint64_t* key,
                                          void* value, uint32_t& slot) {
  Lookup result = Lookup::kMissing;
  const bool found = index.find(index.hash(key, keyWords()), [&](uint32_t candidate) {
    slot = candidate;
    result = examine(candidate, key, value);
    return result != Lookup::kMissing;
  });
  return found ? result : Lookup::kMissing;
}

// For a `buckets` that already belongs to another table, and for a generation that another process
// has overwritten: slow, but correct.
TableReader::Lookup TableReader::lookUpInSlots(const uint64_t* key, void* value, uint32_t& slot) {
  for (slot = 0; slot < capacity(); ++slot) {
    const Lookup result = examine(slot, key, value);
    if (result != Lookup::kMissing) return result;
  }
  return Lookup::kMissing;
}

TableReader::Lookup TableReader::examine(uint32_t slot, const uint64_t* key, void* value) {
  uint64_t found[kMaxKeyWords];
  RecordOut out{found, value, valueBytes_};
  if (!readSlot(slot, out) || out.state == kFree) return Lookup::kMissing;
  const uint32_t words = keyWords();
  for (uint32_t i = 0; i < words; ++i) {
    if (found[i] != key[i]) return Lookup::kMissing;
  }
  return out.state == kLive ? Lookup::kFound : Lookup::kErased;
}

void TableReader::describe(Detail::Window& window) const {
  if (!index_) return;
  const SlotMemory& memory = slots_->memory();
  index_->memory().describe(window);
  window.slots = reinterpret_cast<const char*>(&memory.slot(0));
  window.slotBytes = memory.geometry().slotBytes;
  window.capacity = capacity_;
  window.incarnation = incarnation();
  window.shape = Detail::Window::shapeOf(keyWords(), valueBytes_);
}

void TableReader::failGuard(uint32_t slot) const {
  failCorrupt("the guard of slot " + std::to_string(slot) + " contradicts the image");
}

uint64_t TableReader::capacity() {
  static_cast<void>(hasSlot(UINT32_MAX));
  return capacity_;
}

// The table may have grown, even beyond the address space that is mapped.
bool TableReader::hasSlot(uint32_t slot) {
  if (acquire(header().capacity) <= capacity_) return false;
  if (const std::optional<uint64_t> capacity = slots_->currentCapacity()) {
    capacity_ = *capacity;
  } else {
    slots_ = std::make_shared<const SlotFile>(slots_->mapAgain(options_.hints));
    capacity_ = slots_->capacity();
  }
  return slot < capacity_;
}

bool TableReader::followIndex() {
  const uint64_t wanted = acquire(header().indexGeneration);
  std::optional<IndexFile> index =
      IndexFile::open(options_.place, Access::kRead, slots_->identity(), wanted);
  if (!index) return false;
  index_.emplace(std::move(*index));
  return true;
}

std::optional<LogFile> TableReader::openLog(uint64_t generation) const {
  return LogFile::open(options_.place, Access::kRead, slots_->identity(), generation);
}

}  // namespace Zorbe::Table
