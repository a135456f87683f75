// SPDX-License-Identifier: MIT
#include "table_writer.h"

#include <zorbe/exceptions.h>

#include <cstring>

#include "clock.h"
#include "table_reader.h"

namespace Quotes {

namespace {

// Only this process writes, so it may look at its own words without the guard.
Record recordIn(const Slot& slot) {
  uint64_t words[kRecordWords];
  for (size_t i = 0; i < kRecordWords; ++i)
    words[i] = slot.words[i].load(std::memory_order_relaxed);
  Record record;
  std::memcpy(&record, words, sizeof(record));
  return record;
}

bool isUsed(const Slot& slot) {
  return slot.guard.load(std::memory_order_relaxed) != 0;
}

}  // namespace

TableWriter::TableWriter(const Zorbe::RootPath& root, const Shape& shape, uint32_t fenix,
                         uint64_t sequence)
    : slots_(root, kUnfinishedSlotsFile, kSlotsFile,
             sizeof(SlotsHeader) + shape.slots * sizeof(Slot)),
      log_(root, kUnfinishedLogFile, kLogFile,
           sizeof(LogHeader) + shape.logEntries * sizeof(LogEntry)),
      sequence_(sequence) {
  header().fenix = fenix;
  header().capacity = shape.slots;
  logHeader().fenix = fenix;
  logHeader().capacity = shape.logEntries;
  logHeader().published.store(sequence, std::memory_order_relaxed);
}

void TableWriter::restore(const Record& record) {
  store(findSlot(record), record);
}

void TableWriter::complete() {
  // Release: a reader that sees a magic sees everything that was stored before it.
  logHeader().magic.store(kLogMagic, std::memory_order_release);
  header().magic.store(kSlotsMagic, std::memory_order_release);
  // A writer that is killed in between leaves the files of two incarnations, both complete.
  log_.putInPlace();
  slots_.putInPlace();
}

uint64_t TableWriter::publish(const Quote& quote) {
  const Record record = makeRecord(quote, sequence_ + 1);
  const uint32_t index = findSlot(record);
  ++sequence_;
  store(index, record);
  appendChange(sequence_, index);
  return sequence_;
}

void TableWriter::retire() {
  header().retired.store(1, std::memory_order_release);
}

bool TableWriter::isInPlace() const {
  return slots_.isInPlace() && log_.isInPlace();
}

std::vector<Record> TableWriter::records() const {
  std::vector<Record> all;
  for (uint32_t i = 0; i < header().capacity; ++i) {
    if (isUsed(slot(i))) all.push_back(recordIn(slot(i)));
  }
  return all;
}

Slot& TableWriter::slot(uint32_t index) const {
  return *slots_.at<Slot>(sizeof(SlotsHeader) + index * sizeof(Slot));
}

// Open addressing: from the place that the hash names onwards, until the symbol or a
// slot that was never used. Nothing is ever taken out, so there are no gaps to skip.
uint32_t TableWriter::findSlot(const Record& record) const {
  const uint32_t capacity = header().capacity;
  const uint32_t home = homeSlot(record.symbol, capacity);
  for (uint32_t step = 0; step < capacity; ++step) {
    const uint32_t index = (home + step) % capacity;
    if (!isUsed(slot(index))) return index;
    if (std::memcmp(recordIn(slot(index)).symbol, record.symbol, kSymbolBytes) == 0) return index;
  }
  throw Brask::RuntimeException("the table is full: no slot of " + std::to_string(capacity) +
                                " is left for symbol '" + record.symbol + "'");
}

// The record that is replaced is kept until the new one is whole.
void TableWriter::store(uint32_t index, const Record& record) {
  Slot& target = slot(index);
  if (isUsed(target)) {
    put(header().replaced, recordIn(target));
    header().replacedSlot.store(index + 1, std::memory_order_release);
  } else {
    ++usedSlots_;
  }
  put(target, record);
}

// Release on the first guard: what is replaced was kept before. Release on every word: a reader
// that sees one of them also sees the odd guard when it looks again. Release on the last guard: a
// reader that sees it sees every word.
void TableWriter::put(Slot& target, const Record& record) {
  uint64_t words[kRecordWords];
  std::memcpy(words, &record, sizeof(record));
  const uint32_t guard = target.guard.load(std::memory_order_relaxed);
  target.guard.store(guard + 1, std::memory_order_release);
  for (size_t i = 0; i < kRecordWords; ++i) {
    target.words[i].store(words[i], std::memory_order_release);
  }
  const uint32_t next = guard + 2 == 0 ? 2 : guard + 2;  // 0 would mean "never used"
  target.guard.store(next, std::memory_order_release);
}

// The entry before the sequence: a reader never looks at entries beyond `published`.
void TableWriter::appendChange(uint64_t sequence, uint32_t index) {
  LogHeader& log = logHeader();
  LogEntry& entry =
      *log_.at<LogEntry>(sizeof(LogHeader) + (sequence % log.capacity) * sizeof(LogEntry));
  entry.publishedAt.store(monotonicNanoseconds(), std::memory_order_relaxed);
  entry.change.store(packChange(sequence, index), std::memory_order_release);
  log.published.store(sequence, std::memory_order_release);
}

Legacy readLegacy(const Zorbe::RootPath& root) {
  Legacy legacy;
  const std::optional<TableReader> table = TableReader::openAny(root);
  if (!table) return legacy;
  legacy.sequence = table->published();
  legacy.fenix = table->fenix();
  for (uint32_t i = 0; i < table->slots(); ++i) {
    Record record;
    TableReader::Outcome outcome = table->read(i, record);
    if (outcome == TableReader::Outcome::kEmpty) continue;
    if (outcome == TableReader::Outcome::kBusy) outcome = table->readReplaced(i, record);
    if (outcome == TableReader::Outcome::kWhole && checksumHolds(record)) {
      legacy.records.push_back(record);
    } else {
      ++legacy.lost;
    }
  }
  return legacy;
}

}  // namespace Quotes
