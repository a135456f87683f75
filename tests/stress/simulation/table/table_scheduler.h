// SPDX-License-Identifier: MIT
//
// One run of the ready-made table in a simulated world. A seed decides everything.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "stress/simulation/stepper.h"
#include "stress/simulation/table/table_files.h"
#include "stress/simulation/table/table_programs.h"

namespace Zorbe::Test::Simulation {

/// Makes a reader: a correct one, or one that breaks a rule.
using TableReaderMaker = std::function<std::unique_ptr<TableReaderProgram>(Process&, TableWorld&)>;

struct TableRoles {
  TableReaderMaker reader;
  TableFiles::Stores stores = TableFiles::Stores::kShared;
};

class TableScheduler : private Stepper {
 public:
  TableScheduler(World& world, const TableRoles& roles);

  ~TableScheduler() override;

  void run();
  using Stepper::steps;

 private:
  void check() override;
  void disturb() override;
  void kill(Process& process) override;

  void change();
  void lookUp();
  void removeDirectory();
  void startWriter();
  void startReader();

  TableWriterProgram* writer() const;
  std::vector<TableReaderProgram*> readers() const;
  bool runUntil(double seconds, const std::function<bool()>& done);
  void runFor(double seconds);
  void resumeAll();
  void checkWithoutWriter();
  void checkWithWriter();
  void leaveAll();

  TableFiles files_;
  TableWorld shared_;
  TableRoles roles_;
  bool removes_;  // the directory, now and then
  bool fills_;    // the disk
};

/// The same outcome for the same seed.
Outcome simulateTable(uint64_t seed, const TableRoles& roles, bool tracing);

}  // namespace Zorbe::Test::Simulation
