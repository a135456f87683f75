// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/core.h>

#include <string_view>
#include <vector>

#include "format/format.h"
#include "publish/batch.h"

namespace Zorbe::Relay {

/// Finds what the server's copy and the table differ in: first each record of the server is looked
/// up in the table, then those records of the table are visited that were not among them.
class Comparison {
 public:
  Comparison(Table::ViewCore view, const Table::Schema& schema);

  /// A record of the server: what has to be changed there is added to the batch.
  void seeServers(std::string_view key, std::string_view stored, Batch& batch);

  /// Adds the table's further records until the batch is full. False after the last one.
  bool addMissing(Batch& batch);

  /// How many of the server's records were looked up, and of the table's visited.
  uint64_t servers() const { return servers_; }
  uint64_t visited() const { return visited_; }

 private:
  Table::ViewCore view_;
  Table::Schema schema_;
  uint64_t incarnation_ = 0;  // of the slots in seen_
  std::vector<bool> seen_;    // by slot: the server has the record
  uint64_t cursor_ = 0;
  uint64_t servers_ = 0;
  uint64_t visited_ = 0;
  std::vector<uint64_t> key_;  // padded to whole words
  std::string value_;
};

}  // namespace Zorbe::Relay
