// SPDX-License-Identifier: MIT
//
// What the writers and the readers of the model agree on: sizes, and the one deliberate mistake
// that may be switched on.
#pragma once

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "memory.h"

namespace Zorbe::Model {

enum class Mistake {
  kNone,
#define MISTAKE(enumerator, name, scenario, text) enumerator,
#include "mistakes.def"
#undef MISTAKE
};

struct MistakeInfo {
  Mistake mistake;
  const char* name;
  const char* scenario;
  const char* text;
};
const std::vector<MistakeInfo>& mistakes();

/// A promise of the table is broken.
class Violation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Protocol {
  Mistake mistake = Mistake::kNone;
  Value buckets = 4;      // of the first index; each rebuild adds one
  Value logCapacity = 4;  // of the first log; each enlargement doubles it
  Value tags = 64;        // a tag is a sequence modulo this: at least four times any capacity
  Value slots = 2;        // at first
  Value maxSlots = 2;     // up to which the table grows by itself
  Value sequence = 0;     // of the last change before the table's first
  int words = 2;          // of a slot: 4, or 2 that hold state and sequence, key and value
  bool tombstonesReused = false;

  bool has(Mistake m) const { return mistake == m; }
};

inline constexpr Value kKeys = 8;  // of which 0 is none

inline constexpr Value kEmpty = 0, kTombstone = 1;  // else 2 + slot
inline constexpr Value slotOf(Value bucket) {
  return bucket - 2;
}
inline constexpr Value bucketOf(Value slot) {
  return slot + 2;
}

/// An entry of the log: tag and slot. A new file holds zeros: tag 0, slot 0.
inline constexpr Value kSlotsInEntry = 16;
inline Value entryOf(const Protocol& protocol, Value sequence, Value slot) {
  return sequence % protocol.tags * kSlotsInEntry + slot;
}

struct Record {
  Value state = kUnused;
  Value sequence = 0;
  Value key = 0;
  Value value = 0;
};

using Words = std::array<Value, kMaxWords>;

inline Words wordsOf(const Record& record, const Protocol& protocol) {
  if (protocol.words == 4) return {record.state, record.sequence, record.key, record.value};
  return {record.state + record.sequence * 4, record.key + record.value * 16, 0, 0};
}

inline Record recordOf(const Words& words, const Protocol& protocol) {
  if (protocol.words == 4) return {words[0], words[1], words[2], words[3]};
  return {words[0] % 4, words[0] / 4, words[1] % 16, words[1] / 16};
}

/// The record of a slot after the store number `last`.
Record recordIn(const Memory& memory, const Protocol& protocol, Value slot, int last);

}  // namespace Zorbe::Model
