// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/core.h>

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "format/format.h"

namespace Zorbe::Relay {

/// The local table of a mirror. Takes the server's records, which change meanwhile, and then the
/// changes from before that on: of each key the readers see the values in order.
class LocalCopy {
 public:
  LocalCopy(const std::string& table, const Table::Options& options, const Table::Schema& schema);

  const Table::Schema& schema() const { return schema_; }

  /// Begins to take all records, as they are at `from` or later.
  void beginTransfer(const Id& from);

  /// One of them. False when it is none of this table's.
  bool take(std::string_view key, std::string_view stored);

  /// How many of them were taken.
  uint64_t taken() const { return seen_.size(); }

  /// They were all taken, none of them newer than `to`. What was not among them is erased once the
  /// changes up to there have come: one of them may have erased it.
  void endTransfer(const Id& to);

  /// Whether those changes have not all come yet.
  bool isCatchingUp() const { return isCatchingUp_; }

  /// One change of a batch. False when it is none of this table's.
  bool change(const Id& id, std::string_view key, std::string_view stored);

  /// The changes up to this batch have come.
  void endBatch(const Id& id);

  /// Shows the readers what was changed.
  void publish() { writer_.publish(); }

  void setOrigin(Table::Origin origin) { writer_.setOrigin(origin); }
  uint64_t size() const { return writer_.size(); }

 private:
  void put(std::string_view value);
  bool load(std::string_view key);
  void catchUp();

  Table::Schema schema_;
  Table::WriterCore writer_;
  std::vector<uint64_t> key_;
  std::string value_;
  // From the beginning of a transfer until the changes have caught up with it:
  Id from_, to_;
  bool isCatchingUp_ = false;
  std::unordered_set<std::string> seen_;           // keys that are on the server
  std::unordered_map<std::string, Id> overtaken_;  // records that are newer than the changes so far
};

}  // namespace Zorbe::Relay
