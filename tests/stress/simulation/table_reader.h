// SPDX-License-Identifier: MIT
//
// A reader of the simulated table, as a client writes it.
#pragma once

#include <zorbe/kick.h>
#include <zorbe/mounter.h>
#include <zorbe/unlock.h>

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

class ReaderProgram;

/// Follows one incarnation of the table.
class TableReader : public ReaderKickSm {
 public:
  TableReader(ReaderProgram& program, const RootPath& root, TableRef table,
              Reader::Counters& readerCounters);

  const TableRef& table() const { return table_; }
  uint64_t applied() const { return applied_; }
  bool isConnected() const { return connected; }
  bool isAcknowledged() const { return acknowledged; }
  int descriptor() const { return fdControl->fd(); }

 protected:
  uint64_t readerSequence() override;
  void writerConnectionChanged() override;
  void writerAcknowledged() override;
  std::string readerName() const override;

  ReaderProgram& program_;

 private:
  void read();

  TableRef table_;
  uint64_t applied_ = 0;
  bool wasConnected_ = false;
};

/// Notifies its program that the writer has exited.
class Departure final : public WriterUnlockSm {
 public:
  Departure(ReaderProgram& program, const RootPath& root);

  bool seesWriter() const { return fdControl->fd() >= 0; }
  int descriptor() const { return fdControl->fd(); }

 protected:
  void writerUnlocked() override;

 private:
  ReaderProgram& program_;
};

/// The reader's process: finds the writer, maps the table, connects, and starts over when one
/// of them is lost.
class ReaderProgram : public Program, public MounterBase, public Brask::Platform::TimeoutHandler {
 public:
  using Maker = std::function<std::unique_ptr<TableReader>(ReaderProgram&, const RootPath&,
                                                           TableRef, Reader::Counters&)>;

  ReaderProgram(Process& process, Maker make);

  void start() override;
  void timeout() override;
  void rootChanged(const std::string& what) override;

  // Called by its parts.
  void connectionLost();
  void tableReplaced();
  void writerExited();

  bool isCurrent();
  Process& process() { return process_; }
  TableReader* reader() { return reader_.get(); }
  Departure* departure() { return departure_.get(); }
  bool watchesDirectory() const { return mounter_ != nullptr; }
  std::size_t takeChange(const std::string& file) { return changedFiles_.erase(file); }

 protected:
  /// Events were lost, possibly the end of the watch.
  virtual void watchAgain();

 private:
  void look();
  void lookWithin(double seconds);
  bool findWriter();
  bool mapTable();
  void leaveTable();

  Process& process_;
  Maker make_;
  RootPath root_;
  Reader::Counters counters_{};
  bool usable_ = false;
  bool remount_ = false;
  int64_t nextLook_ = -1;
  std::unique_ptr<Brask::Platform::TimerControl> timer_;
  std::unique_ptr<TableReader> reader_;
  std::unique_ptr<Departure> departure_;
  std::unique_ptr<MounterSm> mounter_;
  std::set<std::string> changedFiles_;  ///< reported by the watch of the directory
};

}  // namespace Zorbe::Test::Simulation
