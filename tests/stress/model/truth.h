// SPDX-License-Identifier: MIT
//
// What a table holds according to the operations that its writers have finished, whichever
// stores those were: readers and takeovers are judged by it.
#pragma once

#include <vector>

#include "protocol.h"

namespace Zorbe::Model {

/// After a takeover: the operation in which the last writer was killed counts as finished if the
/// table holds its change, and never took place otherwise.
void settle(Memory& memory, const Protocol& protocol);

/// The memory, as the next writer finds it, holds just what the finished operations left: each
/// key in one slot and that slot once in the index, nothing torn, everything published that may
/// have been seen.
void checkTable(const Memory& memory, const Protocol& protocol);

/// What a key held from some operation on.
struct Version {
  Value sequence;
  bool live;
  Value value;
  int end;  // the store at which the operation had finished
};

class Truth {
 public:
  explicit Truth(const Memory& memory);

  /// What a key has held, oldest first; the first is that it was not there.
  const std::vector<Version>& versions(Value key) const { return versions_[key]; }

  /// The newest version that every reader sees who sees all stores before number `length`.
  size_t newestAt(Value key, int length) const;
  /// The newest version whose sequence is not above `sequence`.
  size_t newestOf(Value key, Value sequence) const;

  /// A reader found this record: which version it is, not older than `oldest`.
  size_t found(const Record& record, size_t oldest) const;
  /// A reader did not find the key: the oldest version, from `oldest` on, that explains it.
  size_t missing(Value key, size_t oldest) const;

  Value lastSequence() const { return lastSequence_; }
  /// Of the changes, undone ones included, that had begun with the store number `last`.
  Value lastBegun(int last) const;

 private:
  std::vector<std::vector<Version>> versions_;
  Value lastSequence_ = 0;
  std::vector<Operation> begun_;
};

}  // namespace Zorbe::Model
