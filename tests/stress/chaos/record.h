// SPDX-License-Identifier: MIT
//
// The records of the table of a stress run, and one number for all of them.
#pragma once

#include <zorbe/table/fields.h>

#include <cstdint>

namespace Zorbe::Test::Chaos {

using Key = uint32_t;

/// Changes of a writer use these keys. It puts `kMark` last before it publishes.
constexpr unsigned kKeys = 512;
constexpr Key kMark = 0;

/// The same number for the same words, and very likely another one for others.
inline uint64_t mix(uint64_t key, uint64_t number) {
  uint64_t z = key * 0x9e3779b97f4a7c15 + number;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
  z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
  return z ^ (z >> 31);
}

/// All of its words follow from the key and the number of the change: a mixture shows.
struct Record {
  uint64_t number;
  uint64_t echoes[6];

  static Record of(Key key, uint64_t number) {
    Record record{number, {}};
    for (uint64_t& echo : record.echoes) echo = mix(key, number++);
    return record;
  }
  bool isWhole(Key key) const {
    const Record whole = of(key, number);
    for (unsigned i = 0; i < 6; ++i) {
      if (echoes[i] != whole.echoes[i]) return false;
    }
    return true;
  }
};
ZORBE_FIELDS(Record, number, echoes);

/// A key's last change as one number: which one it was, and whether it erased the record. 0 for a
/// key that was never written.
struct KeyState {
  static uint64_t put(uint64_t number) { return 2 * number; }
  static uint64_t erased(uint64_t number) { return 2 * number + 1; }

  /// Whether a table in which the key has the record `number`, or none (0), shows this state.
  static bool shows(uint64_t state, uint64_t number) {
    return state == 0 || (state & 1) != 0 ? number == 0 : number == state / 2;
  }
};

/// Order does not matter: equal records, equal digests.
class Digest {
 public:
  void add(Key key, uint64_t number) { sum_ += mix(key + 1, number); }
  uint64_t value() const { return sum_; }

 private:
  uint64_t sum_ = 0;
};

}  // namespace Zorbe::Test::Chaos
