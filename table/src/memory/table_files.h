// SPDX-License-Identifier: MIT
//
// The files of a table, opened and validated, or being built. Their sizes are read once and kept:
// later content of the shared memory cannot make a process access memory outside the mapping.
#pragma once

#include <sys/types.h>
#include <zorbe/table/schema.h>

#include <memory>
#include <optional>
#include <string>

#include "memory/file.h"
#include "memory/identity.h"
#include "memory/index_memory.h"
#include "memory/mapping.h"
#include "memory/slot_memory.h"

namespace Zorbe::Table {

/// `slots`: the records.
class SlotFile {
 public:
  /// What was found under the name.
  enum class Found {
    kNothing,    // no file, or one that is not complete yet
    kOtherBoot,  // a file that survived a restart of the machine: it may be older in part
    kTable,
  };

  struct Settings {
    Identity identity;
    Schema schema;
    uint64_t capacity = 0;    // slots
    uint64_t maxRecords = 0;  // 0: without a limit
    uint64_t sequence = 0;    // published so far
    MappingHints hints{};
  };

  /// Fills an empty file with a header; complete() is still to come.
  static SlotFile create(const Place& place, File file, const Settings& settings);

  /// Opens what is there. Throws Zorbe::CorruptionDetectedException when it contradicts itself,
  /// Error when it is of another version or cannot be opened.
  static std::optional<SlotFile> open(const Place& place, Access access, Found& found,
                                      MappingHints hints = {});

  /// The sizes and the description in a header. Throws Zorbe::CorruptionDetectedException when
  /// they cannot be.
  static Schema schemaIn(const Place& place, const std::string& path, const SlotsHeader& header);

  /// Throws Zorbe::CorruptionDetectedException when the file does not hold that many slots.
  static void checkCapacity(const Place& place, const File& file, const Geometry& geometry,
                            uint64_t capacity);

  void complete();

  File& file() { return file_; }
  const File& file() const { return file_; }
  const Identity& identity() const { return identity_; }
  const Schema& schema() const { return schema_; }
  const SlotMemory& memory() const { return memory_; }

  /// Slots that may be touched: those of the moment when it was opened, or has grown.
  uint64_t capacity() const { return capacity_; }

  /// A reader: the slots that there are now. Throws Zorbe::CorruptionDetectedException when the
  /// header names more than the file holds. Nothing when the mapping is too small for them:
  /// see mapAgain().
  std::optional<uint64_t> currentCapacity() const;

  /// A reader: the same file, also when its name leads to another one now, with all slots that
  /// there are. Throws like currentCapacity().
  SlotFile mapAgain(MappingHints hints) const;

  /// The writer: gives the file room for `capacity` slots, and then shows them.
  void grow(uint64_t capacity);

 private:
  SlotFile(const Place& place, File file, Access access, const Schema& schema, uint64_t capacity,
           uint64_t maxRecords, MappingHints hints);

  Place place_;
  File file_;
  Schema schema_;
  Geometry geometry_;
  Identity identity_;
  uint64_t capacity_ = 0;
  Mapping mapping_;
  SlotMemory memory_;
};

/// `buckets`: the index.
class IndexFile {
 public:
  /// A new, empty index for `slots` slots under the name `buckets.new`.
  static IndexFile create(const Place& place, const Identity& identity, uint64_t generation,
                          uint64_t slots, mode_t mode);

  /// The index, when it is complete, of this incarnation, and of this generation or a later one.
  /// Throws like SlotFile::open.
  static std::optional<IndexFile> open(const Place& place, Access access, const Identity& identity,
                                       uint64_t generation);

  /// Stores the magic and gives the file its name.
  void complete();

  uint64_t generation() const { return generation_; }
  const IndexMemory& memory() const { return memory_; }

  /// Whether the directory still holds this file.
  bool isInPlace(const Place& place) const { return isAt(place, kIndexFile, id_); }

 private:
  IndexFile(const File& file, Mapping mapping, uint64_t generation, uint64_t buckets);

  std::optional<File> file_;  // until it is complete
  FileId id_;
  Mapping mapping_;
  uint64_t generation_;
  IndexMemory memory_;
};

/// `conquer.1` or `conquer.2`: the change log.
class LogFile {
 public:
  /// A new log of `entries` entries, a power of two, under its name and ".new". The first
  /// sequence that it will hold is `first`.
  static LogFile create(const Place& place, const Identity& identity, uint64_t generation,
                        uint64_t entries, uint64_t first, mode_t mode);

  /// The log of this generation, when it is complete and of this incarnation.
  static std::optional<LogFile> open(const Place& place, Access access, const Identity& identity,
                                     uint64_t generation);

  static uint64_t fileBytes(uint64_t entries) { return kLogEntries + 8 * entries; }

  /// Stores the magic and gives the file its name.
  void complete();

  uint64_t generation() const { return generation_; }
  uint64_t entries() const { return entries_; }

  /// Whether the directory still holds this file.
  bool isInPlace(const Place& place) const { return isAt(place, logFileOf(generation_), id_); }
  uint64_t first() const { return acquire(header().first); }
  void setFirst(uint64_t first) const { release(header().first, first); }
  Word& entry(uint64_t sequence) const {
    return mapping_.at<Word>(kLogEntries)[sequence & (entries_ - 1)];
  }

 private:
  LogFile(const File& file, Mapping mapping, uint64_t generation, uint64_t entries);
  LogHeader& header() const { return *mapping_.at<LogHeader>(0); }

  std::optional<File> file_;  // until it is complete
  FileId id_;
  Mapping mapping_;
  uint64_t generation_;
  uint64_t entries_;
};

}  // namespace Zorbe::Table
