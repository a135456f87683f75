// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "memory/slot_memory.h"

namespace Zorbe::Table {

/// Chooses the slots of new keys. Memory of the writer alone, rebuilt from the slots when a writer
/// takes over. After prepare() has reserved memory, nothing here allocates.
///
/// An erased record keeps its slot for as long as the log holds the entry of the erasure, so that
/// every follower can deliver it. Erased slots are kept in the order of their erasure.
class SlotAllocator {
 public:
  /// Allocates what `capacity` slots need; they may not be used yet.
  void prepare(uint64_t capacity);

  /// Slots below `capacity` may be used. Those that are new are free.
  void extend(uint64_t capacity);

  /// The slot for a new key: one whose erasure is older than `oldest`, or a free one. The slot
  /// stays where it is until take(). Nothing when there is none.
  std::optional<uint32_t> candidate(const SlotMemory& memory, uint64_t oldest) const;

  /// The slot now holds a live record. False when it did before: another process has
  /// overwritten its state.
  bool take(uint32_t slot);

  /// The slot's record has been erased, last of all. False when it was erased before.
  bool release(uint32_t slot);

  /// A writer that takes over: what the slots hold. Calls with ascending slots, those left out
  /// are free; erased slots are released afterwards.
  void setUsed(uint32_t slot);

  uint64_t capacity() const { return links_.size(); }

  /// Slots that hold a record, live or erased.
  uint64_t used() const { return fresh_ - holes_.size(); }

 private:
  static constexpr uint32_t kNone = UINT32_MAX;

  struct Link {
    uint32_t next = kNone;
    uint32_t previous = kNone;
    bool erased = false;
  };

  void unlink(uint32_t slot);

  std::vector<Link> links_;
  std::vector<uint32_t> holes_;  // free slots below fresh_
  uint32_t fresh_ = 0;           // slots from here on were never used
  uint32_t first_ = kNone;       // the slot that was erased first
  uint32_t last_ = kNone;
};

}  // namespace Zorbe::Table
