// SPDX-License-Identifier: MIT
#pragma once

#include "stress/step/stepped_process.h"
#include "stress/step/watched_files.h"
#include "support/table_fixture.h"

#include <atomic>
#include <map>

namespace Zorbe::Test {

using Records = std::map<uint64_t, uint64_t>;

/// 'p' puts a number, 'e' erases, '!' publishes.
struct TableChange {
  char kind;
  uint64_t key;
  uint64_t number;
};
using TableScript = std::vector<TableChange>;

/// What a stepped writer does to a table.
struct TableOperation {
  std::string name;
  uint64_t records;     // room from the start
  uint64_t logEntries;  // 0: as the table decides
  TableScript before;   // not stepped
  TableScript changes;
  std::string grows;  // what grows by it: "capacity", "index", "log", by blanks
};
std::ostream& operator<<(std::ostream& out, const TableOperation& operation);

/// Tables whose writer is another process, which stops or ends at any instruction.
class TableSteps : public TableTest {
 protected:
  TableSteps();
  ~TableSteps() override;

  void SetUp() override;

  /// The table lies in this directory of the test from here on.
  void useDirectory(const std::string& name);
  /// A copy of the table as it is in another directory, which is used from here on: just what
  /// there is when the writer is killed at this instruction.
  void useCopy(const std::string& name);

  /// Changes what a script says; counts what is finished where the other process sees it.
  void apply(Table::TableWriter& table, const TableScript& script);

  /// A process that stops before the changes of the operation.
  std::unique_ptr<SteppedProcess> startWriter(const TableOperation& operation);
  /// A process that stops before it takes the table over.
  std::unique_ptr<SteppedProcess> startTakeover();
  /// Steps until the files differ from what they were. False when it has ended.
  static bool stepToStore(SteppedProcess& process, WatchedFiles& files);
  std::unique_ptr<WatchedFiles> watchFiles() const;

  /// Runs the operation until its store number `store`, and kills the writer there. False when
  /// it has not so many.
  bool killAtStore(const TableOperation& operation, size_t store);

  /// The next writer: it finds everything that was finished, the rest as a whole or not at all,
  /// and no key twice, and works.
  void takeOverAndCheck();
  void checkSlots();
  void checkGoesOn(Table::TableWriter& table);

  /// What the table holds after so many changes of the operation.
  const Records& state(size_t changes) const;
  size_t finished() const { return progress_.load(); }
  void expectStates(const TableOperation& operation);
  static Records readAll(Table::TableWriter& table, const Records& keys);
  Records allKeys() const;

 private:
  friend class TableObserver;
  std::vector<Records> states_;
  std::atomic<size_t>& progress_;  // changes that are finished; shared with the child
};

}  // namespace Zorbe::Test
