// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "stress/relay/hosts.h"

namespace Zorbe::Test::RelayChaos {

/// Compares the tables of all hosts, and what the readers have of them, while the writer rests.
class TableComparison {
 public:
  explicit TableComparison(Hosts& hosts);

  /// Reads the writer's table, as it is from now on.
  void begin();

  /// Whether each copy, and what its reader has, is equal to it and said to be up to date.
  bool areEqual();

  /// What is not, after areEqual() was false.
  std::string difference();

 private:
  using Reader = Table::Reader<Key, Record>;
  using Content = std::unordered_map<Key, uint64_t>;

  static Content contentOf(Reader& reader);
  static uint64_t digestOf(const Content& content);
  std::string sourceState();
  std::string differenceOf(unsigned mirror);

  Hosts& hosts_;
  Reader source_;
  std::vector<std::unique_ptr<Reader>> copies_;
  Content wanted_;
  uint64_t digest_ = 0;
};

}  // namespace Zorbe::Test::RelayChaos
