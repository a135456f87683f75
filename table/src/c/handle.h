// SPDX-License-Identifier: MIT
//
// What a zorbe_table is, and how calls get from C to C++ and back.
#pragma once

#include <zorbe/table/threaded.h>

#include <memory>
#include <optional>
#include <string>

#include "c/failure.h"
#include "c/options.h"
#include "c/shape.h"

/// The part that needs no constructor: all of a handle for which there was no memory.
struct zorbe_table {
  /// Of which functions there are.
  enum Kind : unsigned { kFailed = 0, kReader = 1, kWriter = 2, kEither = 3 };

  constexpr zorbe_table() = default;
  constexpr zorbe_table(int code, std::string_view text) : failure(code, text) {}

  Kind kind = kFailed;
  Zorbe::Table::Failure failure;
};

namespace Zorbe::Table {

struct TableHandle : zorbe_table {
  std::string name;
  std::unique_ptr<CallbackLog> log;  // of reader and writer
  std::unique_ptr<PulledReader> reader;
  std::optional<ViewCore> view;  // of reader
  std::unique_ptr<ServedWriter> writer;
  std::unique_ptr<const Shape> shape;  // null until a reader has found a table

  /// Keeps the description of the table that a reader has found. Returns null as long as there is
  /// none.
  const Shape* findShape() {
    if (shape == nullptr && reader->schema().keyBytes != 0) {
      shape = std::make_unique<const Shape>(reader->schema());
    }
    return shape.get();
  }

  /// Throws Error (usage).
  [[noreturn]] void failUsage(const std::string& what) const {
    throw Error(ErrorCode::usage, name, "", what);
  }
};

/// What a function of another kind of handle, or of none, returns.
int refuse(const zorbe_table* table);

/// Runs `act` with a handle of one of the kinds. What it throws becomes a code and a text. The
/// functions that the interface calls const may change what the handle has in store.
template <class Act>
int call(const zorbe_table* table, unsigned kinds, Act act) noexcept {
  if (table == nullptr || (table->kind & kinds) == 0) return refuse(table);
  auto& handle = static_cast<TableHandle&>(const_cast<zorbe_table&>(*table));
  try {
    const int result = act(handle);
    handle.failure.clear();
    return result;
  } catch (...) {
    return handle.failure.setCurrent();
  }
}

}  // namespace Zorbe::Table
