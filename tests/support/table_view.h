// SPDX-License-Identifier: MIT
#pragma once

#include "support/table_fixture.h"

#include "core/view_shared.h"

#include <zorbe/table/view.h>

#include <cstring>

namespace Zorbe::Test {

/// The bytes of a Value, as a program's value type.
struct Bytes {
  char bytes[kValueBytes];

  Value value() const {
    Value value;
    std::memcpy(static_cast<void*>(&value), bytes, sizeof bytes);
    return value;
  }
};

using TableView = Table::View<uint64_t, Bytes>;

/// A view of one table, as programs make it, and the window through which it looks.
class ViewOfTable {
 public:
  explicit ViewOfTable(std::unique_ptr<Table::TableReader> table) : view_(makeView()) {
    shared_->set(std::move(table));
  }

  const TableView& view() const { return view_; }

  /// The number of a key's value; nothing when it has no record. Fails on a torn one.
  std::optional<uint64_t> get(uint64_t key) const {
    const std::optional<Bytes> found = view_.get(key);
    if (!found) return std::nullopt;
    EXPECT_TRUE(found->value().isWhole()) << "key " << key;
    return found->value().number();
  }

  /// How often the library has looked for the view.
  uint64_t calls() const { return window_->calls; }

 private:
  TableView makeView() {
    Table::ViewCore core(shared_);
    window_ = &core.window();
    return TableView(std::move(core));
  }

  std::shared_ptr<Table::ViewCore::Shared> shared_ = std::make_shared<Table::ViewCore::Shared>();
  const Table::Detail::Window* window_ = nullptr;
  TableView view_;
};

}  // namespace Zorbe::Test
