// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_set>

#include "memory/table_reader.h"

namespace Zorbe::Table {

/// Delivers the changes of a table, one at a call. It begins with all records, and again whenever
/// more has changed than the log holds. A copy to which every change is applied
/// equals the table at position() after each call that returns nothing.
class Follower {
 public:
  enum class Kind {
    kPut,       ///< a record, with its newest value
    kErased,    ///< a key whose record was erased
    kReset,     ///< everything follows again
    kComplete,  ///< every record has been delivered since the last kReset: others were erased
  };

  struct Change {
    Kind kind;
    uint64_t sequence;  // of the record's last change; of the table for kReset and kComplete
  };

  /// The reader outlives this object, which alone uses it at the same time.
  explicit Follower(TableReader& reader) : reader_(reader) {}

  /// The next change, if there is one; never waits. `key` gets the key's words, `value` as many
  /// bytes as the reader's valueBytes() (of a kPut). A key comes once for all its changes that
  /// one pass over the log finds. Throws Zorbe::CorruptionDetectedException, and Error when a file
  /// cannot be opened; the next call then begins again.
  std::optional<Change> next(uint64_t* key, void* value);

  /// Whether next() would deliver something. True also for changes that turn out to have been
  /// delivered already.
  bool hasNext() const {
    return mode_ != Mode::kFollow || cursor_ < passEnd_ || reader_.published() != position_;
  }

  /// Everything up to this sequence has been delivered. Falls only with a kReset.
  uint64_t position() const { return position_; }

  /// Published changes that were not delivered yet.
  uint64_t lag() const;

  /// Begins again with all records.
  void reset() { mode_ = Mode::kBegin; }

 private:
  enum class Mode { kBegin, kScan, kFollow };
  enum class Step { kChange, kNothing, kReset };

  std::optional<Change> advance(uint64_t* key, void* value);
  std::optional<Change> scanSlots(uint64_t* key, void* value);
  bool isPassDue() const;
  Change begin();
  bool beginPass();
  bool mapLog();
  Step stepPass(RecordOut& out);
  Step judge(uint32_t slot, uint64_t sequence, const RecordOut& out);
  static Change changeOf(const RecordOut& out);

  TableReader& reader_;
  std::optional<LogFile> log_;
  Mode mode_ = Mode::kBegin;
  uint64_t position_ = 0;
  uint64_t cursor_ = 0;   // entries up to this one were looked at
  uint64_t passEnd_ = 0;  // the last entry of the pass; equal to cursor_ between passes
  uint32_t slot_ = 0;     // the next one to be scanned
  std::unordered_set<uint32_t> ahead_;  // delivered in this pass, though changed after its end
};

}  // namespace Zorbe::Table
