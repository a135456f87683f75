// SPDX-License-Identifier: MIT
//
// The reading side of one incarnation of a table: memory mapped read-only, no sockets and no
// loop. Never waits for the writer, and works as well when there is none.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "memory/table_files.h"

namespace Zorbe::Table {

class TableWriter;

struct ReaderOptions {
  Place place;
  MappingHints hints{};
};

/// One thread at a time. For any content of the files it accesses only what it has mapped, and
/// every call ends. Contradictory content is a Zorbe::CorruptionDetectedException.
class TableReader {
 public:
  /// Maps the table; null when there is none, it is not complete yet, or it was written before
  /// the machine restarted: try again later. Throws Error for files of another user than the
  /// place's owner, of another version, or that cannot be read.
  static std::unique_ptr<TableReader> open(const ReaderOptions& options);

  /// A further reader of the same mapping, for another thread.
  std::unique_ptr<TableReader> clone() const;

  /// A reader of the writer's own mapping, for tests and checkers of data races: the writer
  /// must neither grow nor be destroyed while it lives.
  static std::unique_ptr<TableReader> over(const TableWriter& writer);

  /// The schema in the file: to be compared with the caller's before any record is read.
  const Schema& schema() const { return slots_->schema(); }
  uint64_t incarnation() const { return slots_->identity().incarnation; }
  uint32_t keyWords() const { return slots_->memory().geometry().keyWords; }

  /// How many bytes of each value are wanted; at first all. At most the schema's.
  void setValueBytes(uint32_t bytes) { valueBytes_ = bytes; }
  uint32_t valueBytes() const { return valueBytes_; }

  /// Copies the value of a key's record, unless `value` is null; false when there is none, and
  /// `value` is then undefined.
  bool get(const uint64_t* key, void* value);

  /// The slot of a key's record: read() then saves the search. A key keeps its slot until it is
  /// erased.
  std::optional<uint32_t> find(const uint64_t* key);

  /// The same as get(), beginning with the slot that find() returned.
  bool read(uint32_t slot, const uint64_t* key, void* value);

  /// Any slot: false when there is no such slot (yet). `out.state` says what it holds.
  bool readSlot(uint32_t slot, RecordOut& out) {
    if (slot >= capacity_ && !hasSlot(slot)) return false;
    if (!slots_->memory().read(slot, out)) failGuard(slot);
    return true;
  }

  /// What is mapped now, for programs that read it themselves. It is valid until the next call of
  /// this object. Empty without an index.
  void describe(Detail::Window& window) const;

  /// Slots that there are now.
  uint64_t capacity();

  /// Sequences up to this one may be read.
  uint64_t published() const { return acquire(header().published); }
  uint64_t publishedAt() const { return acquire(header().publishedAt); }
  uint64_t logGeneration() const { return acquire(header().logGeneration); }

  /// The writer may continue in other files: check isInPlace().
  bool isRetired() const { return acquire(header().retired) != 0; }

  /// Whether the directory still holds these files.
  bool isInPlace() const { return slots_->file().isAt(kSlotsFile); }

  /// The change log, when it is complete and of this generation.
  std::optional<LogFile> openLog(uint64_t generation) const;

  const SlotsHeader& header() const { return slots_->memory().header(); }
  void prefetch(uint32_t slot) const {
    if (slot < capacity_) slots_->memory().prefetch(slot);
  }

  /// Throws Zorbe::CorruptionDetectedException.
  [[noreturn]] void failCorrupt(const std::string& what) const;

 private:
  enum class Lookup { kFound, kErased, kMissing };

  TableReader(const ReaderOptions& options, std::shared_ptr<const SlotFile> slots);

  Lookup lookUp(const uint64_t* key, void* value, uint32_t& slot);
  Lookup lookUpIn(const IndexMemory& index, const uint64_t* key, void* value, uint32_t& slot);
  Lookup lookUpInSlots(const uint64_t* key, void* value, uint32_t& slot);
  Lookup examine(uint32_t slot, const uint64_t* key, void* value);
  bool followIndex();
  bool hasSlot(uint32_t slot);
  [[noreturn]] void failGuard(uint32_t slot) const;

  ReaderOptions options_;
  std::shared_ptr<const SlotFile> slots_;
  uint64_t capacity_;  // slots that may be touched
  uint32_t valueBytes_;
  std::optional<IndexFile> index_;  // none: the slots are searched instead
};

}  // namespace Zorbe::Table
