// SPDX-License-Identifier: MIT
#pragma once

#include "stress/step/table_steps.h"
#include "support/table_view.h"

namespace Zorbe::Test {

/// A reader and a view in this process, which look at every key again and again. Each has seen a
/// change or not, and then never sees less.
class TableObserver {
 public:
  explicit TableObserver(TableSteps& test);

  /// Each key has the value that it had after the finished changes, or after the next one too.
  void look();
  /// So does each key for a reader that has just come.
  void lookAfresh();
  /// A follower that has drained what there is has nothing but what was there at some time.
  void follow();

  /// The follower has all records of the last state, and was never overrun.
  void expectFollowed();

  /// Of a hundred lookups of the view, those that it made without a call of the library.
  uint64_t percentWithoutACall() const;

  /// What has grown since the observer came, as in TableOperation::grows.
  std::string grown() const;

 private:
  using Seen = std::map<uint64_t, size_t>;  // how many changes a key's value implies

  std::optional<uint64_t> in(size_t changes, uint64_t key) const;
  void expectNoLess(Seen& seen, uint64_t key, const std::optional<uint64_t>& number) const;
  std::optional<uint64_t> viewed(uint64_t key);
  void readHandles();
  void expectKnown(uint64_t key, const std::optional<uint64_t>& number) const;

  TableSteps& test_;
  std::unique_ptr<Table::TableReader> reader_;
  std::unique_ptr<Table::TableReader> followed_;
  std::unique_ptr<Copy> copy_;
  Records keys_;
  ViewOfTable view_;
  uint64_t views_ = 0;  // lookups of the view
  Seen seen_;
  Seen seenByView_;
  std::map<uint64_t, uint32_t> slots_;                   // handles of the reader
  std::map<uint64_t, Table::Handle<uint64_t>> handles_;  // of the view
  uint64_t capacity_;
  uint64_t index_;
  uint64_t log_;
};

}  // namespace Zorbe::Test
