// SPDX-License-Identifier: MIT
#pragma once

#include "support/noncopyable.h"
#include "support/record.h"

#include <zorbe/table/in_loop.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace Zorbe::Test {

/// Takes the changes that a reader of a mirrored table sees, and notes the first value of a key
/// that came after a newer one, or that came back after it was erased. For a source in which each
/// change has a higher value than all changes before it.
class OrderChecker {
 public:
  using Content = std::map<uint32_t, int64_t>;

  void put(uint32_t key, int64_t value) {
    const bool isThere = content_.count(key) != 0;
    const auto [newest, isFirst] = newest_.try_emplace(key, value);
    const bool isInOrder =
        isFirst || newest->second < value || (newest->second == value && isThere);
    if (!isInOrder && fault_.empty()) {
      fault_ = "key " + std::to_string(key) + ": " + std::to_string(value) + " after " +
               std::to_string(newest->second) + (isThere ? "" : ", which was erased");
    }
    newest->second = value;
    content_[key] = value;
    unconfirmed_.erase(key);
  }

  void erase(uint32_t key) { content_.erase(key); }

  void reset() {
    for (const auto& [key, value] : content_) unconfirmed_.insert(key);
  }

  void complete() {
    for (const uint32_t key : unconfirmed_) content_.erase(key);
    unconfirmed_.clear();
  }

  /// The records as the changes so far have left them.
  const Content& content() const { return content_; }

  /// What was out of order; empty while nothing was.
  const std::string& fault() const { return fault_; }

 private:
  Content content_;
  Content newest_;                  // of each key that was ever seen
  std::set<uint32_t> unconfirmed_;  // since a reset
  std::string fault_;
};

/// Follows a mirrored table in the current loop, as programs do.
class OrderFollower : public OrderChecker, private NonCopyable {
 public:
  OrderFollower(const std::string& table, const Table::Options& options) : reader_(table, options) {
    reader_.onReady([this] {
      while (const auto change = reader_.next()) take(*change);
    });
  }

 private:
  using Reader = Table::LoopReader<uint32_t, Record>;

  void take(const Table::Change<uint32_t, Record>& change) {
    switch (change.kind) {
      case Table::Kind::put:
        return put(change.key, change.value.a);
      case Table::Kind::erased:
        return erase(change.key);
      case Table::Kind::reset:
        return reset();
      case Table::Kind::complete:
        return complete();
    }
  }

  Reader reader_;
};

}  // namespace Zorbe::Test
