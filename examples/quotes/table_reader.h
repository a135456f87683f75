// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>

#include <cstdint>
#include <optional>
#include <string>

#include "mapping.h"
#include "quote.h"

namespace Quotes {

/// The slot at which the search for a symbol begins.
uint32_t homeSlot(const char* symbol, uint32_t capacity);

/// The reading side of one incarnation of a table. Never blocks the writer, and works
/// as well when there is none. The memory is mapped read-only.
class TableReader {
 public:
  enum class Outcome {
    kEmpty,  ///< the slot was never used
    kWhole,  ///< one publish's record, no word of another
    kBusy,   ///< the writer kept changing it, or was stopped in the middle
  };

  struct Change {
    uint32_t slot;
    uint64_t publishedAt;
  };

  /// Maps the table; nothing when it is not there or not complete yet: try again later.
  /// Throws Zorbe::CorruptionDetectedException when the files are something else, and
  /// Brask::RuntimeException when the system refuses.
  static std::optional<TableReader> open(const Zorbe::RootPath& root);

  /// For the next writer, when there is none: the files may be of two incarnations, of a
  /// writer that was killed before it had put the second one in place. Records and sequence
  /// are the same in both.
  static std::optional<TableReader> openAny(const Zorbe::RootPath& root);

  /// One attempt, with a bounded number of repetitions; `retries`, when given, is
  /// increased by them. Does not look at the checksum.
  Outcome read(uint32_t slot, Record& record, uint32_t* retries = nullptr) const;

  /// The record that was in this slot when a writer was killed that had begun to replace it;
  /// kEmpty when there was none.
  Outcome readReplaced(uint32_t slot, Record& record) const;

  /// The quote of one symbol, straight from shared memory; nothing when the table does
  /// not have it. Throws Zorbe::CorruptionDetectedException on a wrong checksum, and
  /// Brask::RuntimeException when a stopped writer left a record half written.
  std::optional<Quote> find(const std::string& symbol) const;

  /// The change with this sequence; nothing when the log does not hold it any more.
  std::optional<Change> change(uint64_t sequence) const;

  /// Sequences up to this one may be read.
  uint64_t published() const;

  /// True when the writer has moved on to other files.
  bool isRetired() const;

  /// True when the directory still holds these files.
  bool isInPlace(const Zorbe::RootPath& root) const;

  uint32_t fenix() const { return header().fenix; }
  uint32_t slots() const { return header().capacity; }
  uint32_t logEntries() const { return logHeader().capacity; }

 private:
  TableReader(Mapping slots, Mapping log);
  static Outcome readSlot(const Slot& slot, Record& record, uint32_t* retries);
  const SlotsHeader& header() const { return *slots_.at<SlotsHeader>(0); }
  const LogHeader& logHeader() const { return *log_.at<LogHeader>(0); }

  Mapping slots_;
  Mapping log_;
};

/// Throws Zorbe::CorruptionDetectedException unless the checksum holds.
void verify(const Record& record, uint32_t slot);

}  // namespace Quotes
