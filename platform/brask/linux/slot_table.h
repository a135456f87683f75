// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace Brask::Linux {

/// Names one entry of a SlotTable. Once the entry is erased the handle finds nothing, also
/// when another entry has the slot.
struct Handle {
  uint32_t slot = 0;
  uint32_t generation = 0;  // 0 names nothing

  bool operator==(const Handle& other) const {
    return slot == other.slot && generation == other.generation;
  }
};

/// Entries that events refer to by handle, so that an event that was queued when its entry was
/// erased is recognised. Pointers are valid until the next insert.
template <typename Entry>
class SlotTable {
 public:
  Handle insert(Entry entry) {
    if (free_.empty()) {
      slots_.emplace_back();
      free_.reserve(slots_.capacity());  // erase() never allocates
      free_.push_back(static_cast<uint32_t>(slots_.size() - 1));
    }
    const uint32_t index = free_.back();
    free_.pop_back();
    slots_[index].entry = std::move(entry);
    slots_[index].live = true;
    ++size_;
    return {index, slots_[index].generation};
  }

  Entry* find(Handle handle) {
    if (handle.slot >= slots_.size()) return nullptr;
    Slot& slot = slots_[handle.slot];
    return slot.live && slot.generation == handle.generation ? &slot.entry : nullptr;
  }

  void erase(Handle handle) {
    if (find(handle) == nullptr) return;
    Slot& slot = slots_[handle.slot];
    slot.live = false;
    slot.entry = Entry();
    if (++slot.generation == 0) slot.generation = 1;
    free_.push_back(handle.slot);
    --size_;
  }

  uint32_t size() const { return size_; }

  template <typename Visit>
  void forEach(Visit visit) {
    for (uint32_t index = 0; index < slots_.size(); ++index) {
      if (slots_[index].live) visit(Handle{index, slots_[index].generation}, slots_[index].entry);
    }
  }

 private:
  struct Slot {
    Entry entry{};
    uint32_t generation = 1;
    bool live = false;
  };

  std::vector<Slot> slots_;
  std::vector<uint32_t> free_;
  uint32_t size_ = 0;
};

}  // namespace Brask::Linux
