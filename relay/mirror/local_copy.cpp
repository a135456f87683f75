// SPDX-License-Identifier: MIT
#include "mirror/local_copy.h"

#include <algorithm>
#include <cstring>

namespace Zorbe::Relay {

LocalCopy::LocalCopy(const std::string& table, const Table::Options& options,
                     const Table::Schema& schema)
    : schema_(schema),
      writer_(table, options, schema),
      key_((schema.keyBytes + 7) / 8),
      value_(schema.valueBytes, '\0') {}

bool LocalCopy::load(std::string_view key) {
  if (key.size() != schema_.keyBytes) return false;
  std::fill(key_.begin(), key_.end(), 0);
  std::memcpy(key_.data(), key.data(), key.size());
  return true;
}

// A reader is not woken for what it has.
void LocalCopy::put(std::string_view value) {
  const bool isThere = writer_.get(key_.data(), value_.data());
  if (!isThere || value != value_) writer_.put(key_.data(), value.data());
}

void LocalCopy::beginTransfer(const Id& from) {
  from_ = from;
  isCatchingUp_ = false;
  seen_.clear();
  overtaken_.clear();
}

// The record may be newer than what the stream delivers next: its older values must not return.
bool LocalCopy::take(std::string_view key, std::string_view stored) {
  const auto record = parseStored(stored);
  if (!record || record->value.size() != schema_.valueBytes || !load(key)) return false;
  seen_.emplace(key);
  if (from_ < record->id) overtaken_[std::string(key)] = record->id;
  put(record->value);
  return true;
}

void LocalCopy::endTransfer(const Id& to) {
  to_ = to;
  isCatchingUp_ = true;
  endBatch(from_);
}

bool LocalCopy::change(const Id& id, std::string_view key, std::string_view stored) {
  if (!load(key)) return false;
  if (const auto newer = overtaken_.find(std::string(key)); newer != overtaken_.end()) {
    if (id < newer->second) return true;
    overtaken_.erase(newer);
  }
  if (stored.empty()) {
    writer_.erase(key_.data());
    return true;
  }
  const auto record = parseStored(stored);
  if (!record || record->value.size() != schema_.valueBytes) return false;
  if (isCatchingUp_) seen_.emplace(key);
  put(record->value);
  return true;
}

void LocalCopy::endBatch(const Id& id) {
  if (isCatchingUp_ && !(id < to_)) catchUp();
}

void LocalCopy::catchUp() {
  std::vector<uint64_t> key(key_.size());
  std::vector<std::string> gone;
  for (uint64_t cursor = 0; writer_.scan(cursor, key.data(), nullptr);) {
    std::string bytes(reinterpret_cast<const char*>(key.data()), schema_.keyBytes);
    if (seen_.find(bytes) == seen_.end()) gone.push_back(std::move(bytes));
  }
  for (const std::string& bytes : gone) {
    if (load(bytes)) writer_.erase(key_.data());
  }
  isCatchingUp_ = false;
  seen_ = {};
  overtaken_ = {};
}

}  // namespace Zorbe::Relay
