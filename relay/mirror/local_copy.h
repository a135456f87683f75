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

/// The local table of a mirror. Takes the server's records and changes in any overlap: what is
/// newer stays.
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

  /// Erases what was not among them.
  void endTransfer();

  /// One change of a batch. False when it is none of this table's.
  bool change(const Id& id, std::string_view key, std::string_view stored);

  /// Shows the readers what was changed.
  void publish() { writer_.publish(); }

  void setOrigin(Table::Origin origin) { writer_.setOrigin(origin); }
  uint64_t size() const { return writer_.size(); }

 private:
  void put(std::string_view value);
  bool load(std::string_view key);
  std::string_view keyBytes() const;

  Table::Schema schema_;
  Table::WriterCore writer_;
  std::vector<uint64_t> key_;
  std::string value_;
  Id from_;
  std::unordered_set<std::string> seen_;           // during a transfer
  std::unordered_map<std::string, Id> overtaken_;  // records that are newer than the stream so far
};

}  // namespace Zorbe::Relay
