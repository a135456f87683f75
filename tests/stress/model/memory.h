// SPDX-License-Identifier: MIT
//
// The shared memory of one table as a list of stores. There is one writer at a time and readers
// store nothing, so the stores of all writers are one sequence; what a reader may see of it is
// decided by its view (explorer.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Zorbe::Model {

using Value = uint32_t;
using Location = int;

inline constexpr int kMaxWords = 4;  // of a slot, beside its guard
inline constexpr int kMaxSlots = 6;
inline constexpr Value kNoSlot = 99;

enum SlotState : Value { kUnused, kLive, kErased };

// Locations that exist once. Those of the files follow as the files are made.
namespace At {
inline constexpr Location kPublished = 0, kIndexGeneration = 1, kLogGeneration = 2, kCapacity = 3,
                          kFileSize = 4, kIndexName = 5, kLogName = 6 /* and 7 */,
                          kImageCounter = 8, kImageSlot = 9, kImageGuard = 10, kImageWord = 11,
                          kSlots = 15, kFiles = kSlots + kMaxSlots * (1 + kMaxWords);
inline constexpr Location guard(Value slot) {
  return kSlots + static_cast<Location>(slot) * (1 + kMaxWords);
}
inline constexpr Location word(Value slot, int i) {
  return guard(slot) + 1 + i;
}
}  // namespace At

struct Store {
  Location location;
  Value value;
  bool release;
};

/// A file of the index or of the change log. What its header says never changes once its magic
/// is there: it is kept here, but for the magic.
struct File {
  std::string name;
  Value generation;
  Value size;   // entries
  Value first;  // the lowest sequence that a log holds
  Location magic;
  Location entry(Value i) const { return magic + 1 + static_cast<Location>(i); }
};

/// One step of a writer's script, with the stores that it made: [begin, end).
struct Operation {
  static constexpr int kUnfinished = 1 << 30;
  size_t step;
  char kind;  // p put, e erase, others change no record
  Value key;
  Value value;
  Value sequence;
  int begin;
  int end;
  int logged;  // its entry of the log, if it got so far
  bool finished() const { return end != kUnfinished; }
  bool changesRecord() const { return kind == 'p' || kind == 'e'; }
};

/// What memory does to a store: it is the last thing that the killed writer did not do.
struct Killed {};

class Memory {
 public:
  Memory() : stores_(), byLocation_(At::kFiles) {}

  void store(Location location, Value value, bool release);
  Value latest(Location location) const { return at(location, size() - 1); }
  /// The value that the newest of the first `last` + 1 stores gave.
  Value at(Location location, int last) const;

  int size() const { return static_cast<int>(stores_.size()); }
  const Store& operator[](int i) const { return stores_[static_cast<size_t>(i)]; }
  /// The stores to a location, oldest first.
  const std::vector<int>& storesTo(Location location) const {
    return byLocation_[static_cast<size_t>(location)];
  }

  /// A file without a store; names are locations that hold 1 + the file's number.
  Value makeFile(std::string name, Value generation, Value size, Value first);
  const File& file(Value number) const { return files_[number]; }

  /// A writer that was killed before its store number `length`, though some of those that
  /// follow had been made: only relaxed ones can be.
  Memory killedAt(int length, const std::vector<int>& early) const;

  std::vector<Operation> operations;
  std::vector<int> quiet;  // numbers of stores at which a writer had finished something
  int setUp = 0;           // stores before the first writer that may be killed

  std::string nameOf(Location location) const;

 private:
  std::vector<Store> stores_;
  std::vector<std::vector<int>> byLocation_;
  std::vector<File> files_;
};

}  // namespace Zorbe::Model
