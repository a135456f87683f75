// SPDX-License-Identifier: MIT
//
// Tables of the same records, kept in different ways, that other processes can read.
#pragma once

#include <zorbe/table/fields.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "harness/statistics.h"
#include "table/key.h"

namespace Bench {

/// 48 bytes, under keys of 8.
struct Record {
  uint64_t words[6];
};
ZORBE_FIELDS(Record, words);

inline Record recordOf(uint64_t number) {
  return {{number, 1, 2, 3, 4, 5}};
}

/// Makes the compiler believe that the value is looked at.
template <class T>
void use(const T& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

/// The time of one of `count` calls: a sample for each part of them, which `part(first, length)`
/// makes. The median is then of parts that the kernel has not interrupted.
template <class Part>
std::vector<double> timeParts(size_t count, Part part) {
  constexpr size_t kLength = 2000;
  std::vector<double> times;
  for (size_t first = 0; first < count; first += kLength) {
    const double before = nanoseconds();
    part(first, kLength);
    times.push_back((nanoseconds() - before) / double{kLength});
  }
  return times;
}

using Numbers = std::vector<uint64_t>;

/// Random numbers below `limit`.
Numbers randomNumbers(size_t count, uint64_t limit);

/// The keys of random records, a part of them at a time: caches that hold the last part do not
/// hold the next one.
class KeySource {
 public:
  explicit KeySource(uint64_t records);

  /// `count` keys; at most half of them all.
  const uint64_t* next(size_t count);

 private:
  Numbers keys_;
  size_t position_ = 0;
};

/// One process's way to read a table.
class Source {
 public:
  virtual ~Source() = default;

  /// Finds and copies the records of these keys, one after another.
  virtual void getAll(const uint64_t* keys, size_t count) = 0;
};

/// A record that was put is not there.
[[noreturn]] void failMissing();

/// Calls `get(key)`, which copies a record and says whether there is one, for each key.
template <class Get>
void getEach(const uint64_t* keys, size_t count, Get get) {
  for (size_t each = 0; each < count; ++each) {
    if (!get(keys[each])) failMissing();
  }
}

/// A table, filled.
class Store {
 public:
  virtual ~Store() = default;
  virtual std::string name() const = 0;

  /// Of this process.
  virtual std::unique_ptr<Source> open() = 0;

  /// Stores a record so that other processes see it; false where that is not measured.
  virtual bool put(uint64_t, const Record&) { return false; }
};

using Stores = std::vector<std::unique_ptr<Store>>;

std::unique_ptr<Store> makeTable(const std::string& directory, uint64_t records);

/// The table's layout in private memory, as one thread may read it: no guards, no atomics, no
/// file.
std::unique_ptr<Store> makeFloor(uint64_t records);
std::unique_ptr<Store> makeMap(uint64_t records);
std::unique_ptr<Store> makeLmdb(const std::string& directory, uint64_t records);
std::unique_ptr<Store> makeMutex(const std::string& directory, uint64_t records);
std::unique_ptr<Store> makeSharableMutex(const std::string& directory, uint64_t records);

/// Those that several processes can read, the table first.
Stores makeSharedStores(const std::string& directory, uint64_t records);

}  // namespace Bench
