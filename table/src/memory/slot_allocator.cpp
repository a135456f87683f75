// SPDX-License-Identifier: MIT
#include "memory/slot_allocator.h"

namespace Zorbe::Table {

void SlotAllocator::prepare(uint64_t capacity) {
  links_.reserve(static_cast<size_t>(capacity));
}

void SlotAllocator::extend(uint64_t capacity) {
  links_.resize(static_cast<size_t>(capacity));
}

std::optional<uint32_t> SlotAllocator::candidate(const SlotMemory& memory, uint64_t oldest) const {
  if (first_ != kNone && memory.sequenceOf(first_) < oldest) return first_;
  if (!holes_.empty()) return holes_.back();
  if (fresh_ < links_.size()) return fresh_;
  return std::nullopt;
}

bool SlotAllocator::take(uint32_t slot) {
  if (links_[slot].erased) {
    unlink(slot);
  } else if (slot == fresh_) {
    ++fresh_;
  } else if (!holes_.empty() && slot == holes_.back()) {
    holes_.pop_back();
  } else {
    return false;
  }
  return true;
}

bool SlotAllocator::release(uint32_t slot) {
  if (links_[slot].erased) return false;
  links_[slot] = {kNone, last_, true};
  (last_ == kNone ? first_ : links_[last_].next) = slot;
  last_ = slot;
  return true;
}

void SlotAllocator::setUsed(uint32_t slot) {
  for (; fresh_ < slot; ++fresh_) holes_.push_back(fresh_);
  ++fresh_;
}

void SlotAllocator::unlink(uint32_t slot) {
  const Link link = links_[slot];
  (link.previous == kNone ? first_ : links_[link.previous].next) = link.next;
  (link.next == kNone ? last_ : links_[link.next].previous) = link.previous;
  links_[slot] = {};
}

}  // namespace Zorbe::Table
