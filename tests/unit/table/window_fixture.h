// SPDX-License-Identifier: MIT
#pragma once

#include "support/table_view.h"

namespace Zorbe::Test {

class WindowTest : public TableTest {
 protected:
  /// A view of what has been set; its window stays where it is.
  TableView makeView() {
    Table::ViewCore core(shared_);
    window_ = &core.window();
    return TableView(std::move(core));
  }

  /// A table with records of the keys from 1 on, ten times as large, which the view maps.
  std::unique_ptr<Table::TableWriter> mapRecords(uint64_t count) {
    auto table = openWriter();
    for (uint64_t key = 1; key <= count; ++key) put(*table, key, 10 * key);
    mapTable();
    return table;
  }
  void mapTable() { shared_->set(openReader()); }

  static std::optional<uint64_t> get(const TableView& view, uint64_t key) {
    const std::optional<Bytes> found = view.get(key);
    EXPECT_EQ(view.contains(key), found.has_value());
    if (!found) return std::nullopt;
    EXPECT_TRUE(found->value().isWhole()) << "key " << key;
    return found->value().number();
  }

  /// How often `use` made the library look.
  template <class Use>
  uint64_t callsOf(Use use) {
    const uint64_t before = window_->calls;
    use();
    return window_->calls - before;
  }

  std::shared_ptr<Table::ViewCore::Shared> shared_ = std::make_shared<Table::ViewCore::Shared>();
  const Table::Detail::Window* window_ = nullptr;
};

}  // namespace Zorbe::Test
