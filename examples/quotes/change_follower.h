// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/counters.h>

#include <cstdint>
#include <vector>

#include "quote.h"
#include "table_reader.h"

namespace Quotes {

/// How long something took, many times over. Keeps the latest 65,536 samples.
class Latencies {
 public:
  void add(uint64_t nanoseconds);

  /// The value that `percent` of the samples do not exceed, in nanoseconds; 0 without any.
  uint64_t percentile(unsigned percent) const;

 private:
  std::vector<uint64_t> samples_;
  size_t next_ = 0;
};

/// Keeps a copy of a table up to date by applying its change log. Plain memory, no
/// sockets: the kick channel only says when to look.
///
/// It begins by scanning every slot, and does so again whenever it has fallen behind by
/// more than the log holds. A scan finds each record as it is at some moment after the
/// scan began, so the copy is then as new as what was published when it began.
class ChangeFollower {
 public:
  enum class Progress {
    kCaughtUp,  ///< everything that was published when the call began is in the copy
    kMore,      ///< the budget is used up: call again soon
    kBlocked,   ///< a record was left half written: nothing to be done before the writer
                ///< goes on, or has been replaced
  };

  /// `counters` has to outlive this object.
  ChangeFollower(TableReader table, Zorbe::Reader::Counters& counters);

  /// Goes on by at most `budget` changes or slots. Throws
  /// Zorbe::CorruptionDetectedException when the table contradicts itself.
  Progress advance(uint32_t budget);

  /// The writer's sequence up to which the copy holds everything. Never falls.
  uint64_t sequence() const { return sequence_; }

  const Copy& copy() const { return copy_; }
  const TableReader& table() const { return table_; }
  uint64_t applied() const { return applied_; }

  /// From a publish that was made while the copy was up to date, to its application.
  const Latencies& wakeUps() const { return wakeUps_; }

 private:
  Progress applyChanges(uint32_t budget);
  Progress scan(uint32_t budget);
  void beginScan();
  bool apply(uint32_t slot);

  TableReader table_;
  Zorbe::Reader::Counters& counters_;
  Copy copy_;
  Latencies wakeUps_;
  uint64_t sequence_ = 0;
  uint64_t applied_ = 0;
  bool wasCaughtUp_ = false;
  bool scanning_ = false;
  uint64_t scanTarget_ = 0;
  uint32_t scanNext_ = 0;
};

}  // namespace Quotes
