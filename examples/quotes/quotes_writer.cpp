// SPDX-License-Identifier: MIT
#include "quotes_writer.h"

#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <string>
#include <utility>

#include <unistd.h>

#include "clock.h"
#include "log.h"

namespace Quotes {

namespace {

// Somebody who removes a directory should be done with it before the files come back.
constexpr double kSettleSeconds = 0.05;
constexpr double kRetrySeconds = 0.25;

/// A number that no earlier incarnation had, as far as anybody could know: the
/// directory, and with it the last number, may have been removed in between.
uint32_t newFenix(uint32_t previous) {
  std::string seed = std::to_string(::getpid()) + "/" + std::to_string(monotonicNanoseconds());
  uint32_t fenix = Zorbe::Util::hash(seed);
  while (fenix == 0 || fenix == previous) fenix = Zorbe::Util::hash(seed += "+");
  return fenix;
}

}  // namespace

QuotesWriter::QuotesWriter(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
                           const Shape& tableShape)
    : WriterKickSm(debugHandler, root, false), shape_(tableShape), caretaker_(*this) {}

// The order matters. First the lock: only its holder may touch the files. Then the files.
// Only then listen: a reader that can connect finds the files of this very writer. They are
// watched before they are there: nobody can remove them unseen.
void QuotesWriter::open() {
  createKickSocket();
  const Legacy legacy = takeOver();
  tookOver_ = legacy.fenix != 0;
  auto watch = std::make_unique<DirectoryWatch>(*handler, rootPath.name, *this);
  makeTable(legacy);
  watch_ = std::move(watch);
  doEnableListen();
}

Legacy QuotesWriter::takeOver() {
  try {
    Legacy legacy = readLegacy(rootPath);
    if (legacy.lost > 0) {
      log(*handler, 0, "QuotesWriter::takeOver() ", legacy.lost,
          " records of the earlier writer are not whole and were dropped");
    }
    return legacy;
  } catch (const Zorbe::CorruptionDetectedException& corruption) {
    log(*handler, 0, "QuotesWriter::takeOver() starting empty: ", corruption.what());
    Zorbe::Util::writeCorruptionFile(*handler, rootPath.path, corruption.what());
    return {};
  }
}

/// Returns the table that it replaces. When it throws, that one is still in use.
std::unique_ptr<TableWriter> QuotesWriter::makeTable(const Legacy& legacy) {
  auto table =
      std::make_unique<TableWriter>(rootPath, shape_, newFenix(legacy.fenix), legacy.sequence);
  for (const Record& record : legacy.records) table->restore(record);
  table->complete();
  Zorbe::FenixFile::write(*handler, rootPath.path, table->fenix());  // last: readers hear of it
  table_.swap(table);
  writerSequence = table_->sequence();
  log(*handler, 2, "QuotesWriter::makeTable() ", rootPath, " fenix:", table_->fenix(),
      " sequence:", writerSequence, " records:", table_->usedSlots());
  return table;
}

void QuotesWriter::recover() {
  if (watch_) watch_->renew();
}

uint64_t QuotesWriter::publish(const Quote& quote) {
  const uint32_t usedBefore = table_->usedSlots();
  // The memory first, then `writerSequence`, then the kick: a reader that is woken finds it.
  writerSequence = table_->publish(quote);
  doKickSleepers();
  ++counters_.directWrite;
  ++(table_->usedSlots() > usedBefore ? counters_.slotAllocs : counters_.slotReuses);
  if (writerSequence % shape_.logEntries == 0) countOverruns();
  return writerSequence;
}

// Once for every time round the log. `lowestSequence` is 0 for as long as some connection
// has not reported, which tells nothing about how far anybody is behind.
void QuotesWriter::countOverruns() {
  const uint64_t lowest = lowestSequence();
  if (lowest != 0 && lowest < writerSequence && writerSequence - lowest > shape_.logEntries) {
    ++counters_.conquerOverruns;
  }
}

// Not simply lowestSequence(): a connection that only listens for the writer's end never
// reports, and would hold it at 0 for ever.
bool QuotesWriter::readersHaveRead() const {
  for (const auto& [fd, reader] : readers) {
    if (reader->acknowledged && reader->sequence < writerSequence) return false;
  }
  return true;
}

unsigned QuotesWriter::reportingReaders() const {
  unsigned count = 0;
  for (const auto& [fd, reader] : readers) count += reader->acknowledged ? 1 : 0;
  return count;
}

Copy QuotesWriter::copy() const {
  Copy copy;
  for (const Record& record : table_->records()) {
    Quote quote = quoteOf(record);
    copy[quote.symbol] = std::move(quote);
  }
  return copy;
}

const Zorbe::Writer::Counters& QuotesWriter::counters() {
  counters_.conquerSequence = writerSequence;
  counters_.kicksIssued = kickCount;
  return counters_;
}

// After taking a table over, its readers are on their way back; the library then calls
// readersChanged once more when the time to come back is over.
int QuotesWriter::expectReconnects() {
  return tookOver_ ? 1 : 0;
}

void QuotesWriter::readersChanged() {
  counters_.connectedReaders = readers.size();
  log(*handler, 5, "QuotesWriter::readersChanged() connections: ", readers.size());
}

// Also about what this writer did itself: everything is found in place then.
void QuotesWriter::rootChanged(const std::string& what) {
  log(*handler, 5, "QuotesWriter::rootChanged() ", rootPath, " ", what);
  ++counters_.inotifyTriggers;
  caretaker_.start(kSettleSeconds);
}

// Not moved when it is due already: a directory that changes all the time would put it off
// for ever.
void QuotesWriter::Caretaker::start(double seconds) {
  if (!std::exchange(due, true)) timer->start(seconds);
}

// A full disk leaves the incarnation's file empty and nobody says so: the event of each attempt
// to write it leads back here.
void QuotesWriter::restoreFiles() {
  caretaker_.due = false;
  try {
    if (!table_->isInPlace()) {
      remakeTable();
    } else if (Zorbe::FenixFile::read(*handler, rootPath.path) != table_->fenix()) {
      Zorbe::FenixFile::write(*handler, rootPath.path, table_->fenix());
    }
  } catch (const Brask::Exception& failure) {
    log(*handler, 0, "QuotesWriter::restoreFiles() ", rootPath, ": ", failure.msg());
    caretaker_.start(kRetrySeconds);
  }
}

// The memory of the old files is still there, and readers are still looking at it. They are
// told to leave when there is something to go to, and woken to hear it.
void QuotesWriter::remakeTable() {
  const Legacy legacy{table_->sequence(), table_->fenix(), 0, table_->records()};
  const std::unique_ptr<TableWriter> old = makeTable(legacy);
  old->retire();
  doKickSleepers();
}

}  // namespace Quotes
