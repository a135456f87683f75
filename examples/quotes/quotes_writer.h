// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/counters.h>
#include <zorbe/kick.h>

#include <cstdint>
#include <memory>
#include <string>

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
/// A writer never touches the files of an earlier one, which may have been killed in
/// the middle of a store. It takes over what is whole in them, goes on with their
/// sequence, and makes files of its own: a new incarnation. Readers of the old one map
/// the new one before they report to this writer.
///
/// It never waits for readers. One that falls behind by more than the change log holds
/// scans the table again.
class QuotesWriter : public Zorbe::WriterKickSm {
 public:
  /// Opens nothing. The handler has to outlive this object.
  QuotesWriter(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
               const Shape& tableShape);

  /// Becomes the writer, makes the table, and lets readers connect. Throws
  /// Zorbe::DuplicateWriterException when there is a writer, Brask::RuntimeException
  /// when the files cannot be made.
  void open();

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

 private:
  Legacy takeOver();
  void makeTable(const Legacy& legacy);
  void countOverruns();

  Shape shape_;
  std::unique_ptr<TableWriter> table_;
  bool tookOver_ = false;
  Zorbe::Writer::Counters counters_{};
};

}  // namespace Quotes
