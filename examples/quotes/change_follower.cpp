// SPDX-License-Identifier: MIT
#include "change_follower.h"

#include <zorbe/exceptions.h>

#include <algorithm>
#include <utility>

#include "clock.h"

namespace Quotes {

namespace {

constexpr size_t kLatencySamples = 65536;

}  // namespace

void Latencies::add(uint64_t nanoseconds) {
  if (samples_.size() < kLatencySamples) {
    samples_.push_back(nanoseconds);
  } else {
    samples_[next_] = nanoseconds;
    next_ = (next_ + 1) % kLatencySamples;
  }
}

uint64_t Latencies::percentile(unsigned percent) const {
  if (samples_.empty()) return 0;
  std::vector<uint64_t> sorted = samples_;
  const size_t rank = (sorted.size() - 1) * percent / 100;
  std::nth_element(sorted.begin(), sorted.begin() + static_cast<ptrdiff_t>(rank), sorted.end());
  return sorted[rank];
}

ChangeFollower::ChangeFollower(TableReader table, Zorbe::Reader::Counters& counters)
    : table_(std::move(table)), counters_(counters) {
  beginScan();
}

ChangeFollower::Progress ChangeFollower::advance(uint32_t budget) {
  if (!scanning_ && table_.published() - sequence_ > table_.logEntries()) {
    ++counters_.conquerOverruns;
    beginScan();
  }
  const Progress progress = scanning_ ? scan(budget) : applyChanges(budget);
  wasCaughtUp_ = progress == Progress::kCaughtUp;
  counters_.conquerSequence = sequence_;
  counters_.occupiedSlots = static_cast<uint32_t>(copy_.size());
  return progress;
}

ChangeFollower::Progress ChangeFollower::applyChanges(uint32_t budget) {
  const uint64_t target = table_.published();
  if (target == sequence_) ++counters_.conquerEmpty;
  for (; sequence_ < target; ++sequence_) {
    if (budget-- == 0) return Progress::kMore;
    ++counters_.conquerProbes;
    const std::optional<TableReader::Change> change = table_.change(sequence_ + 1);
    if (!change) {  // lapped while reading
      ++counters_.conquerOverruns;
      beginScan();
      return Progress::kMore;
    }
    if (std::exchange(wasCaughtUp_, false)) {
      wakeUps_.add(monotonicNanoseconds() - change->publishedAt);
    }
    if (!apply(change->slot)) return Progress::kBlocked;
    ++applied_;
  }
  return Progress::kCaughtUp;
}

void ChangeFollower::beginScan() {
  ++counters_.conquerRescans;
  scanning_ = true;
  scanNext_ = 0;
  scanTarget_ = table_.published();
}

ChangeFollower::Progress ChangeFollower::scan(uint32_t budget) {
  for (; scanNext_ < table_.slots(); ++scanNext_) {
    if (budget-- == 0) return Progress::kMore;
    ++counters_.slotProbes;
    if (!apply(scanNext_)) return Progress::kBlocked;
  }
  scanning_ = false;
  sequence_ = scanTarget_;
  return table_.published() == sequence_ ? Progress::kCaughtUp : Progress::kMore;
}

bool ChangeFollower::apply(uint32_t slot) {
  Record record;
  const TableReader::Outcome outcome = table_.read(slot, record, &counters_.tornRecords);
  if (outcome == TableReader::Outcome::kBusy) return false;
  if (outcome == TableReader::Outcome::kWhole) {
    verify(record, slot);
    Quote quote = quoteOf(record);
    copy_[quote.symbol] = std::move(quote);
  } else if (!scanning_) {
    throw Zorbe::CorruptionDetectedException("the change log names slot " + std::to_string(slot) +
                                             ", which was never used");
  }
  return true;
}

}  // namespace Quotes
