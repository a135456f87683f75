// SPDX-License-Identifier: MIT
//
// A reader of the simulated table, written as a client would.
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

/// Tells its program that the writer has gone.
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

/// The reader's process: finds the writer, maps the table, connects, and begins again
/// whenever one of them is lost.
class ReaderProgram : public Program, public MounterBase, public Brask::Platform::TimeoutHandler {
 public:
  using Maker = std::function<std::unique_ptr<TableReader>(ReaderProgram&, const RootPath&,
                                                           TableRef, Reader::Counters&)>;

  ReaderProgram(Process& process, Maker make);

  void start() override;
  void timeout() override;
  void rootChanged(const std::string& what) override;

  // Told by its parts, whose callbacks these are.
  void connectionLost();
  void tableReplaced();
  void writerGone();

  bool isCurrent();
  Process& process() { return process_; }
  TableReader* reader() { return reader_.get(); }
  Departure* departure() { return departure_.get(); }
  bool watchesDirectory() const { return mounter_ != nullptr; }
  std::size_t takeNews(const std::string& file) { return news_.erase(file); }

 protected:
  /// Events were lost, the end of the watch perhaps among them.
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
  std::set<std::string> news_;  ///< what the directory has told of
};

}  // namespace Zorbe::Test::Simulation
