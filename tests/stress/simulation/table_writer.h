// SPDX-License-Identifier: MIT
//
// The writer of the simulated table, as a client writes it.
#pragma once

#include <zorbe/kick.h>
#include <zorbe/mounter.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

class TableWriter : public WriterKickSm {
 public:
  TableWriter(Process& process, const RootPath& root);

  /// Becomes the writer and listens. What createKickSocket throws passes through.
  virtual void begin();

  /// From here on it acts as the writer, with the lock or without.
  bool isWriting() const { return writing_; }

  /// Changes the table `changes` times, then kicks.
  virtual void publish(unsigned changes);

  /// Puts the table's files into the directory.
  void placeFiles();

  // What the invariants look at.
  bool holdsLock() const { return kickSocket >= 0; }
  uint64_t sequence() const { return writerSequence; }
  const TableRef& table() const { return table_; }
  const std::unordered_map<int, ReaderKickClientSm*>& connections() const { return readers; }
  const std::unordered_map<int, ReaderKickClientSm*>& sleepers() const { return sleepingReaders; }
  std::size_t reportedConnections() const { return reportedConnections_; }
  Process& process() const { return process_; }

 protected:
  int expectReconnects() override { return found_ ? 1 : 0; }
  void readersChanged() override;

  void change(unsigned changes);

  /// Continues the table of an earlier writer, or replaces it by another incarnation.
  void takeOver();
  virtual void replace(const TableRef& left);

 private:
  TableRef findTable();

  Process& process_;
  bool writing_ = false;
  bool found_ = false;
  std::size_t reportedConnections_ = 0;
  TableRef table_;
};

/// The writer's process: ends at once when there is a writer already.
class WriterProgram final : public Program, public MounterBase {
 public:
  using Maker = std::function<std::unique_ptr<TableWriter>(Process&, const RootPath&)>;

  WriterProgram(Process& process, const Maker& make);

  void start() override;
  void rootChanged(const std::string& what) override;

  TableWriter& writer() { return *writer_; }
  bool holdsLock() const { return writer_ && writer_->holdsLock(); }
  bool watchesDirectory() const { return mounter_ != nullptr; }
  std::size_t takeChange(const std::string& file) { return changedFiles_.erase(file); }

 private:
  void restoreFiles();

  Process& process_;
  RootPath root_;
  std::unique_ptr<TableWriter> writer_;
  std::unique_ptr<MounterSm> mounter_;
  std::set<std::string> changedFiles_;  ///< reported by the watch of the directory
};

}  // namespace Zorbe::Test::Simulation
