// SPDX-License-Identifier: MIT
#include "publish/comparison.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Zorbe::Relay {

Comparison::Comparison(Table::ViewCore view, const Table::Schema& schema)
    : view_(std::move(view)),
      schema_(schema),
      key_((schema.keyBytes + 7) / 8),
      value_(schema.valueBytes, '\0') {}

void Comparison::seeServers(std::string_view key, std::string_view stored, Batch& batch) {
  ++servers_;
  if (key.size() != schema_.keyBytes) return batch.erase(key);
  std::fill(key_.begin(), key_.end(), 0);
  std::memcpy(key_.data(), key.data(), key.size());
  const auto place = view_.find(key_.data());
  if (!place || !view_.read(*place, key_.data(), value_.data())) return batch.erase(key);
  // Another table has taken the place: what was seen says nothing about its slots.
  if (std::exchange(incarnation_, place->incarnation) != place->incarnation) seen_.clear();
  if (seen_.size() <= place->slot) seen_.resize(place->slot + size_t{1});
  seen_[place->slot] = true;
  const auto found = parseStored(stored);
  if (!found || found->value != value_) batch.put(key, value_);
}

bool Comparison::addMissing(Batch& batch) {
  while (!batch.isFull()) {
    if (!view_.scan(cursor_, key_.data(), value_.data())) return false;
    ++visited_;
    const uint64_t slot = cursor_ - 1;  // the cursor is behind it
    if (slot < seen_.size() && seen_[slot]) continue;
    batch.put({reinterpret_cast<const char*>(key_.data()), schema_.keyBytes}, value_);
  }
  return true;
}

}  // namespace Zorbe::Relay
