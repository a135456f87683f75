// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/counters.h>
#include <zorbe/kick.h>

#include <cstdint>
#include <memory>
#include <string>

#include "directory_watch.h"
#include "quote.h"
#include "table_writer.h"

namespace Quotes {

/// The writer of a quotes table: the table's memory, and the kick channel that wakes
/// its readers.
///
///     QuotesWriter writer(log, root, {});
///     writer.open();
///     writer.publish({"ABC", 101250, 300});
///
/// A writer never changes the files of an earlier one, which may have been killed in
/// the middle of a store. It takes over what is whole in them, goes on with their
/// sequence, and makes files of its own: a new incarnation, which replaces the old one when
/// it is complete. Until then, and when the new one cannot be made (the disk is full, or it
/// would have too few slots), the table that was there stays. Readers of the old one map
/// the new one before they report to this writer.
///
/// When somebody removes the files or the whole directory, it makes them again with all that
/// the table held, as a new incarnation too.
///
/// It never waits for readers. One that falls behind by more than the change log holds
/// scans the table again.
class QuotesWriter : public Zorbe::WriterKickSm, public Zorbe::MounterBase {
 public:
  /// Opens nothing. The handler has to outlive this object.
  QuotesWriter(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
               const Shape& tableShape);

  /// Becomes the writer, makes the table, and lets readers connect. Throws
  /// Zorbe::DuplicateWriterException when there is a writer, Brask::RuntimeException
  /// when the files cannot be made or have too few slots for the table that is there.
  void open();

  /// To be called when an exception of the library has left the loop, as when the directory
  /// was removed and cannot be made again. The table stays in memory; its files are put back
  /// when they can be.
  void recover();

  /// Stores and announces one quote; returns its sequence. Throws what
  /// TableWriter::publish throws.
  uint64_t publish(const Quote& quote);

  /// True when no reader has anything left to read.
  bool readersHaveRead() const;

  /// How many connected readers have reported at least once.
  unsigned reportingReaders() const;

  /// The number that names this incarnation of the table.
  uint32_t fenix() const { return table_->fenix(); }
  uint64_t sequence() const { return writerSequence; }
  Copy copy() const;
  const Zorbe::Writer::Counters& counters();

  int expectReconnects() override;
  void readersChanged() override;
  void rootChanged(const std::string& what) override;

 private:
  /// Has the files looked after a moment later. The base class's timer is taken.
  class Caretaker : public Brask::Platform::TimeoutHandler {
   public:
    explicit Caretaker(QuotesWriter& owner)
        : writer(owner), timer(Brask::Platform::getTimerControl(this)) {}
    void timeout() override { writer.restoreFiles(); }
    void start(double seconds);

    QuotesWriter& writer;
    bool due = false;
    std::unique_ptr<Brask::Platform::TimerControl> timer;
  };

  Legacy takeOver();
  std::unique_ptr<TableWriter> makeTable(const Legacy& legacy);
  void countOverruns();
  void restoreFiles();
  void remakeTable();

  Shape shape_;
  std::unique_ptr<TableWriter> table_;
  bool tookOver_ = false;
  Zorbe::Writer::Counters counters_{};
  Caretaker caretaker_;
  std::unique_ptr<DirectoryWatch> watch_;
};

}  // namespace Quotes
