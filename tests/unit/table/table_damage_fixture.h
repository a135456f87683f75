// SPDX-License-Identifier: MIT
#pragma once

#include "support/table_fixture.h"
#include "unit/table/damage.h"

#include <filesystem>
#include <optional>
#include <string>

namespace Zorbe::Test {

/// A table whose files are damaged.
class TableDamage : public TableTest {
 protected:
  static constexpr uint64_t kRecords = 100;

  // A table whose writer has ended.
  void makeTable() {
    for (const auto& entry : std::filesystem::directory_iterator(options.place.directory)) {
      std::filesystem::remove(entry);
    }
    const auto table = openWriter();
    fill(*table, kRecords);
    for (uint64_t key = 0; key < kRecords; key += 10) erase(*table, key);
    table->publish();
  }

  template <class T>
  void expectAllRecords(T& table) {
    for (uint64_t key = 0; key < kRecords; ++key) {
      const auto expected = key % 10 == 0 ? std::nullopt : std::make_optional(key);
      EXPECT_EQ(get(table, key), expected) << key;
    }
  }

  void overwrite(uint64_t offset, uint64_t word) { overwriteWord(path("slots"), offset, word); }
};

}  // namespace Zorbe::Test
