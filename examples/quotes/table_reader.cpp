// SPDX-License-Identifier: MIT
#include "table_reader.h"

#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cstring>
#include <thread>
#include <utility>

namespace Quotes {

namespace {

// A publish is over in well under a microsecond. Whoever sees an odd guard this often
// looks at a writer that was stopped or killed, and must not wait for it.
constexpr int kAttempts = 1000;
constexpr int kAttemptsBeforeYield = 100;

[[noreturn]] void corrupt(const std::string& file, const std::string& why) {
  throw Zorbe::CorruptionDetectedException(file + " " + why);
}

template <class Header>
bool isComplete(const Mapping& file, const std::string& path, uint64_t expected) {
  if (file.size() < sizeof(Header)) corrupt(path, "is too short for a table");
  const uint64_t magic = file.at<Header>(0)->magic.load(std::memory_order_acquire);
  if (magic == 0) return false;  // not complete
  if (magic != expected) {
    corrupt(path, "has the magic '" + Zorbe::Util::decodeMagic(magic) + "' and not '" +
                      Zorbe::Util::decodeMagic(expected) + "'");
  }
  return true;
}

template <class Header, class Element>
void checkSize(const Mapping& file, const std::string& path) {
  const size_t capacity = file.at<Header>(0)->capacity;
  if (capacity == 0 || file.size() != sizeof(Header) + capacity * sizeof(Element)) {
    corrupt(path, "has " + std::to_string(file.size()) + " bytes, which its capacity of " +
                      std::to_string(capacity) + " contradicts");
  }
}

bool copyWords(const Slot& slot, uint32_t guard, Record& record) {
  uint64_t words[kRecordWords];
  for (size_t i = 0; i < kRecordWords; ++i)
    words[i] = slot.words[i].load(std::memory_order_acquire);
  if (slot.guard.load(std::memory_order_relaxed) != guard) return false;
  std::memcpy(&record, words, sizeof(record));
  return true;
}

}  // namespace

uint32_t homeSlot(const char* symbol, uint32_t capacity) {
  return Zorbe::Util::hash(std::string(symbol, strnlen(symbol, kSymbolBytes))) % capacity;
}

TableReader::TableReader(Mapping slots, Mapping log)
    : slots_(std::move(slots)), log_(std::move(log)) {}

std::optional<TableReader> TableReader::open(const Zorbe::RootPath& root) {
  std::optional<TableReader> table = openAny(root);
  // The files of two incarnations: the writer is between making one and the other.
  if (table && table->header().fenix != table->logHeader().fenix) return std::nullopt;
  return table;
}

std::optional<TableReader> TableReader::openAny(const Zorbe::RootPath& root) {
  const std::string slotsPath = root.fullPath(kSlotsFile);
  const std::string logPath = root.fullPath(kLogFile);
  std::optional<Mapping> slots = Mapping::open(slotsPath);
  std::optional<Mapping> log = Mapping::open(logPath);
  if (!slots || !log || !isComplete<SlotsHeader>(*slots, slotsPath, kSlotsMagic) ||
      !isComplete<LogHeader>(*log, logPath, kLogMagic)) {
    return std::nullopt;
  }
  checkSize<SlotsHeader, Slot>(*slots, slotsPath);
  checkSize<LogHeader, LogEntry>(*log, logPath);
  return TableReader(std::move(*slots), std::move(*log));
}

TableReader::Outcome TableReader::read(uint32_t index, Record& record, uint32_t* retries) const {
  return readSlot(*slots_.at<Slot>(sizeof(SlotsHeader) + index * sizeof(Slot)), record, retries);
}

TableReader::Outcome TableReader::readReplaced(uint32_t index, Record& record) const {
  const bool isOfSlot = header().replacedSlot.load(std::memory_order_acquire) == index + 1;
  return isOfSlot ? readSlot(header().replaced, record, nullptr) : Outcome::kEmpty;
}

TableReader::Outcome TableReader::readSlot(const Slot& slot, Record& record, uint32_t* retries) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const uint32_t guard = slot.guard.load(std::memory_order_acquire);
    if (guard == 0) return Outcome::kEmpty;
    if (guard % 2 == 0 && copyWords(slot, guard, record)) return Outcome::kWhole;
    if (retries != nullptr) ++*retries;
    if (attempt >= kAttemptsBeforeYield) std::this_thread::yield();
  }
  return Outcome::kBusy;
}

std::optional<Quote> TableReader::find(const std::string& symbol) const {
  const uint32_t home = homeSlot(symbol.c_str(), slots());
  for (uint32_t step = 0; step < slots(); ++step) {
    const uint32_t index = (home + step) % slots();
    Record record;
    const Outcome outcome = read(index, record);
    if (outcome == Outcome::kEmpty) return std::nullopt;
    if (outcome == Outcome::kBusy) {
      throw Brask::RuntimeException("slot " + std::to_string(index) +
                                    " was left half written by a writer that has stopped");
    }
    if (symbol != quoteOf(record).symbol) continue;
    verify(record, index);
    return quoteOf(record);
  }
  return std::nullopt;
}

std::optional<TableReader::Change> TableReader::change(uint64_t sequence) const {
  const LogEntry& entry =
      *log_.at<LogEntry>(sizeof(LogHeader) + (sequence % logEntries()) * sizeof(LogEntry));
  const uint64_t change = entry.change.load(std::memory_order_acquire);
  const Change found{static_cast<uint32_t>(change),
                     entry.publishedAt.load(std::memory_order_relaxed)};
  if (change != packChange(sequence, found.slot)) return std::nullopt;  // lapped
  if (found.slot >= slots()) corrupt("the change log", "names a slot that does not exist");
  return found;
}

uint64_t TableReader::published() const {
  return logHeader().published.load(std::memory_order_acquire);
}

bool TableReader::isRetired() const {
  return header().retired.load(std::memory_order_acquire) != 0;
}

bool TableReader::isInPlace(const Zorbe::RootPath& root) const {
  return slots_.isFile(root.fullPath(kSlotsFile)) && log_.isFile(root.fullPath(kLogFile));
}

void verify(const Record& record, uint32_t slot) {
  if (checksumHolds(record)) return;
  corrupt("slot " + std::to_string(slot), "has a wrong checksum, symbol '" +
                                              quoteOf(record).symbol + "' sequence " +
                                              std::to_string(record.sequence));
}

}  // namespace Quotes
