// SPDX-License-Identifier: MIT
#include "publish/batch.h"

namespace Zorbe::Relay {

Batch::Change& Batch::of(std::string_view key) {
  const auto [place, isNew] = places_.try_emplace(std::string(key), changes_.size());
  if (isNew) {
    changes_.push_back({std::string(key), {}, false});
    bytes_ += key.size();
  }
  Change& change = changes_[place->second];
  bytes_ -= change.value.size();
  return change;
}

void Batch::put(std::string_view key, std::string_view value) {
  Change& change = of(key);
  change.value = value;
  change.isErased = false;
  bytes_ += value.size();
}

void Batch::erase(std::string_view key) {
  Change& change = of(key);
  change.value.clear();
  change.isErased = true;
}

void Batch::moveTo(Command& command, const Id& id) {
  size_t puts = 0;
  for (const Change& change : changes_) puts += change.isErased ? 0 : 1;
  command.add(puts);
  for (const Change& change : changes_) {
    if (!change.isErased) command.add(change.key).add(store(id, change.value));
  }
  for (const Change& change : changes_) {
    if (change.isErased) command.add(change.key).add(std::string_view());
  }
  changes_.clear();
  places_.clear();
  bytes_ = 0;
}

}  // namespace Zorbe::Relay
