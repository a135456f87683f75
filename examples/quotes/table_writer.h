// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fresh_file.h"
#include "quote.h"

namespace Quotes {

/// How large a table is made. Readers take it from the files.
struct Shape {
  uint32_t slots = 4096;
  uint32_t logEntries = 4096;
};

/// The writing side of one incarnation of a table: plain memory, no sockets. Only the
/// process that holds the writer lock may have one.
///
///     TableWriter table(root, shape, fenix, 0);
///     table.complete();                       from now on readers may map it
///     uint64_t sequence = table.publish({"ABC", 101250, 300});
///
/// Errors are thrown as Brask::RuntimeException and leave the table as it was.
class TableWriter {
 public:
  /// Makes both files, beside those of an earlier incarnation. The first publish will have
  /// the sequence after `sequence`.
  TableWriter(const Zorbe::RootPath& root, const Shape& shape, uint32_t fenix, uint64_t sequence);

  /// Puts a record of an earlier incarnation in, before `complete`. Not a publish.
  void restore(const Record& record);

  /// Puts the files, which are complete, in the place of the earlier ones. Before that, and
  /// when it throws, the table that was there can be read and taken over.
  void complete();

  /// Stores the quote, notes the change in the log, and lets readers see it. Returns
  /// its sequence. Throws when the table is full or the symbol does not fit.
  uint64_t publish(const Quote& quote);

  /// Tells the readers that still map these files that the writer goes on in others.
  void retire();

  /// True when the directory still holds these files.
  bool isInPlace() const;

  /// Every record of the table.
  std::vector<Record> records() const;

  uint64_t sequence() const { return sequence_; }
  uint32_t fenix() const { return header().fenix; }
  uint32_t usedSlots() const { return usedSlots_; }

 private:
  SlotsHeader& header() const { return *slots_.at<SlotsHeader>(0); }
  LogHeader& logHeader() const { return *log_.at<LogHeader>(0); }
  Slot& slot(uint32_t index) const;
  uint32_t findSlot(const Record& record) const;
  void store(uint32_t index, const Record& record);
  static void put(Slot& target, const Record& record);
  void appendChange(uint64_t sequence, uint32_t index);

  FreshFile slots_;
  FreshFile log_;
  uint64_t sequence_;
  uint32_t usedSlots_ = 0;
};

/// What an earlier writer of this directory left behind.
struct Legacy {
  uint64_t sequence = 0;
  uint32_t fenix = 0;  // 0: there was no table
  uint32_t lost = 0;   // records that were not whole
  std::vector<Record> records;
};

/// Reads it. A writer that was killed while it stored a record loses that one, which was not
/// published yet, and not the one that it was to replace. Throws
/// Zorbe::CorruptionDetectedException when the files are not a table.
Legacy readLegacy(const Zorbe::RootPath& root);

}  // namespace Quotes
