// SPDX-License-Identifier: MIT
//
// What a simulated table has to hold, however its processes end.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <zorbe/table/fields.h>

namespace Zorbe::Test::Simulation {

/// A value says which one it is: a mixture of two, or that of another key, shows.
struct Cell {
  uint64_t key;
  uint64_t number;  ///< each put of a world has another one
  uint64_t check;

  static uint64_t checkOf(uint64_t key, uint64_t number) {
    return (key << 32 ^ number) * 0x9e3779b97f4a7c15;
  }
  static Cell of(uint64_t key, uint64_t number) { return {key, number, checkOf(key, number)}; }
  bool isOf(uint64_t itsKey) const { return key == itsKey && check == checkOf(key, number); }
};
ZORBE_FIELDS(Cell, key, number, check);

/// The numbers by key.
using Numbers = std::map<uint64_t, uint64_t>;

/// What the first difference is.
std::string describe(const Numbers& found, const Numbers& expected);

class Oracle {
 public:
  static constexpr uint64_t kErased = 0;

  // What the writer does.
  uint64_t nextNumber() { return ++lastNumber_; }
  void begin(uint64_t key, uint64_t number);  ///< a put, or with kErased an erase
  void finish();                              ///< it has returned
  void refuse() { begun_.reset(); }           ///< it has thrown

  /// Another writer has got the table with this content. Returns what is wrong with it, or
  /// nothing. `mayBeEmpty`: its files were removed while there was no writer.
  std::string takeOver(const Numbers& found, bool mayBeEmpty);

  /// Each record that no change is going on for.
  const Numbers& finished() const { return finished_; }
  const std::optional<std::pair<uint64_t, uint64_t>>& begun() const { return begun_; }

  // What a reader gets.
  size_t now() const { return history_.size(); }

  /// Whether a lookup that began at `since` may end with this number now.
  bool mayBe(uint64_t key, uint64_t number, size_t since) const;

  /// Whether that was a value of the key at any time.
  bool wasEver(const Cell& cell) const { return cell.number - 1 < lastNumber_; }

 private:
  struct Change {
    uint64_t key;
    uint64_t before;
    uint64_t number;
  };

  uint64_t finishedOf(uint64_t key) const;

  uint64_t lastNumber_ = 0;
  Numbers finished_;
  std::optional<std::pair<uint64_t, uint64_t>> begun_;
  std::vector<Change> history_;  // of what has finished
};

}  // namespace Zorbe::Test::Simulation
