// SPDX-License-Identifier: MIT
//
// Writers and readers of a simulated table.
#pragma once

#include <zorbe/table/in_loop.h>

#include <memory>
#include <optional>
#include <set>

#include "stress/simulation/table/table_oracle.h"
#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

/// What the processes of one world share.
struct TableWorld {
  Oracle oracle;
  bool wasRemoved = false;  ///< the directory, and no writer has had its files in place since
  unsigned removals = 0;    ///< of the directory
  uint64_t keys = 0;
  Table::Options options;
};

/// Becomes the writer, or leaves.
class TableWriterProgram final : public Program {
 public:
  TableWriterProgram(Process& process, TableWorld& shared) : process_(process), shared_(shared) {}

  void start() override;

  /// Puts and erases so many records, and publishes now and then.
  void change(unsigned changes);

  bool isWriting() const { return writing_; }

 private:
  void become();
  bool changeOne();
  void adopt();

  Process& process_;
  TableWorld& shared_;
  std::optional<Table::LoopWriter<uint64_t, Cell>> writer_;
  bool writing_ = false;
};

/// Keeps a copy of the table, as the guide shows, and looks up records.
class TableReaderProgram : public Program {
 public:
  using Reader = Table::LoopReader<uint64_t, Cell>;

  TableReaderProgram(Process& process, TableWorld& shared) : process_(process), shared_(shared) {}

  void start() override;
  void lookUp(uint64_t key);

  /// What it has when everything has come to rest; a text says what is wrong.
  std::string checkAtRest();
  bool isConnected() const { return reader_->state() == Table::State::connected; }
  bool isStarted() const { return started_; }

 protected:
  virtual void apply(const Table::Change<uint64_t, Cell>& change);
  virtual void drain();

  /// The next change, applied. False when there is none.
  bool takeOne();

  Numbers copy_;
  std::set<uint64_t> unseen_;  // since the last reset

  Process& process_;
  TableWorld& shared_;

 private:
  void expectRight(uint64_t key, const std::optional<Cell>& found, size_t since);

  std::optional<Reader> reader_;
  std::optional<Table::View<uint64_t, Cell>> view_;
  bool started_ = false;
};

}  // namespace Zorbe::Test::Simulation
