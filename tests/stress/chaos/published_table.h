// SPDX-License-Identifier: MIT
//
// A table of a stress run, as its writer changes it.
#pragma once

#include <zorbe/table.h>
#include <zorbe/table/in_loop.h>

#include <memory>
#include <optional>

#include "stress/chaos/client_context.h"
#include "stress/chaos/reader.h"
#include "stress/chaos/shared_state.h"

namespace Zorbe::Test::Chaos {

/// Either kind of writer.
class TableOfWriter {
 public:
  virtual ~TableOfWriter() = default;
  virtual void put(Key key, const Record& record) = 0;
  virtual bool erase(Key key) = 0;
  virtual void publish() = 0;
  virtual std::optional<Record> get(Key key) const = 0;
};

/// Throws what the constructor of the writer throws.
std::unique_ptr<TableOfWriter> becomeWriter(ClientContext& context, Kind kind);

/// Changes a table, and notes in the shared state what it is about to do and what it has done.
class PublishedTable {
 public:
  /// Finds out which of the changes that earlier writers had begun are in the table. `lost` of
  /// the state is set when one is missing that they had finished.
  PublishedTable(std::unique_ptr<TableOfWriter> table, SharedState& shared, ProcessState& state,
                 Flaw flaw);

  /// That many changes, and then the mark.
  void publish(unsigned count);

 private:
  void takeOver(ProcessState& state);
  void change(Key key, bool erases);

  std::unique_ptr<TableOfWriter> table_;
  SharedState& shared_;
  Flaw flaw_;
};

}  // namespace Zorbe::Test::Chaos
