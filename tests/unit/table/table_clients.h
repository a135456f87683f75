// SPDX-License-Identifier: MIT
#pragma once

#include "support/record.h"

#include "support/fixture.h"

#include <zorbe/table/core.h>
#include <zorbe/table/options.h>

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace Zorbe::Test {

/// For tests with a table's writer and reader of one kind.
template <class TheWriter, class TheReader>
class TableClients : public ZorbeTest {
 protected:
  using Kind = Table::Kind;
  using State = Table::State;
  using Writer = TheWriter;
  using Reader = TheReader;

  TableClients() { options.root = rootPath(); }

  /// Keeps what the reader has delivered since the last time, and returns how much that was.
  size_t drain(Reader& reader) {
    const size_t before = kinds.size();
    while (const auto change = reader.next()) {
      kinds.push_back(change->kind);
      if (change->kind == Kind::reset) copy.clear();
      if (change->kind == Kind::put) copy[change->key] = change->value.a;
      if (change->kind == Kind::erased) copy.erase(change->key);
    }
    return kinds.size() - before;
  }

  /// Whether the copy has this value for the key, or nothing.
  bool has(uint32_t key, std::optional<int64_t> value) const {
    const auto found = copy.find(key);
    return value ? found != copy.end() && found->second == *value : found == copy.end();
  }

  Table::Options options;
  std::vector<Kind> kinds;
  std::map<uint32_t, int64_t> copy;
};

}  // namespace Zorbe::Test
