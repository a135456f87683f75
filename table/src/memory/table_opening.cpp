// SPDX-License-Identifier: MIT
//
// How a writer opens or makes its files. The lock is an open-file-description lock on `slots`, on a
// descriptor that nothing is mapped from: a mapping would keep the lock beyond the descriptor.
#include <zorbe/exceptions.h>

#include <algorithm>

#include "memory/table_writer.h"

namespace Zorbe::Table {

namespace {

constexpr const char* kNewSlots = "slots.new";
constexpr int kAttempts = 16;  // against a process that replaces the file repeatedly

[[noreturn]] void failLocked(const Place& place) {
  throw DuplicateWriterException("table '" + place.table + "': " + place.path(kSlotsFile) +
                                     " is locked: another process writes this table, perhaps by "
                                     "another name of its directory, or a reader has locked it",
                                 0, "", "");
}

void checkAtMost(const Place& place, const char* option, uint64_t value, uint64_t limit) {
  if (value <= limit) return;
  throw Error(ErrorCode::usage, place.table, "",
              std::string(option) + " is " + std::to_string(value) + "; it may be " +
                  std::to_string(limit) + " at most");
}

void checkSizes(const WriterOptions& options) {
  checkAtMost(options.place, "Options::records", options.records, kMaxSlots);
  checkAtMost(options.place, "Options::maxRecords", options.maxRecords, kMaxSlots);
  checkAtMost(options.place, "Options::logEntries", options.logEntries, kMaxLogEntries);
}

void removeLeftOvers(const Place& place) {
  for (const char* name : {kNewSlots, "buckets.new", "conquer.1.new", "conquer.2.new"}) {
    removeFile(place, name);
  }
}

// Nothing may be written to a file of another user. Whether that one is still writing shows in
// its lock, which a shared one conflicts with.
std::optional<File> lockOfAnotherUser(const Place& place) {
  std::optional<File> theirs = File::open(place, kSlotsFile, Access::kRead);
  if (theirs && !theirs->tryLockShared()) failLocked(place);
  return theirs;
}

// What has got the name of `slots`, locked. Nothing when it is no file.
std::optional<File> lockOccupant(const Place& place) {
  try {
    std::optional<File> there = File::open(place, kSlotsFile, Access::kWrite);
    if (there && !there->tryLock()) failLocked(place);
    return there;
  } catch (const CorruptionDetectedException&) {
    return std::nullopt;
  } catch (const Error& denied) {
    if (denied.code() != ErrorCode::denied) throw;
    return lockOfAnotherUser(place);
  }
}

Identity newIdentity(const Place& place) {
  Identity identity = currentBoot(place);
  identity.incarnation = randomNumber(place);
  return identity;
}

void copySlots(const TableWriter& source, const SlotMemory& to) {
  const SlotMemory& from = source.slots().memory();
  const uint32_t words = from.geometry().recordWords;
  for (uint32_t index = 0; index < source.capacity(); ++index) {
    const Word* read = &from.slot(index).state;
    Word* write = &to.slot(index).state;
    for (uint32_t i = 0; i < words; ++i) release(write[i], relaxed(read[i]));
  }
}

}  // namespace

std::unique_ptr<TableWriter> TableWriter::open(const WriterOptions& options) {
  checkSizes(options);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::unique_ptr<TableWriter> table(new TableWriter(options));
    if (table->tryOpen() && table->isInPlace()) return table;
  }
  failLocked(options.place);
}

bool TableWriter::tryOpen() {
  std::optional<File> lock;
  try {
    lock = File::open(options_.place, kSlotsFile, Access::kWrite);
  } catch (const CorruptionDetectedException& notAFile) {
    replace(notAFile.what(), nullptr);
    return true;
  } catch (const Error& denied) {
    if (denied.code() != ErrorCode::denied) throw;
    replaceOfAnotherUser(denied.what());
    return true;
  }
  if (!lock) return tryCreate();
  if (!lock->tryLock()) failLocked(options_.place);
  lock_.emplace(std::move(*lock));
  return isInPlace() && (continueOrReplace(), true);
}

void TableWriter::replaceOfAnotherUser(const std::string& why) {
  const std::optional<File> theirs = lockOfAnotherUser(options_.place);
  replace(why, nullptr);
}

bool TableWriter::tryCreate() {
  std::optional<File> lock = File::createUnnamed(options_.place, options_.mode);
  if (!lock) lock.emplace(createNamed());
  lock_.emplace(std::move(*lock));
  if (!lock_->tryLock()) failLocked(options_.place);
  fillSlots(nullptr);
  if (!lock_->link(kSlotsFile)) return false;
  buildIndexAndLog();
  slots_->complete();
  return true;
}

// `slots.new`, which another writer may be filling at the same time.
File TableWriter::createNamed() {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::optional<File> file = File::create(options_.place, kNewSlots, options_.mode);
    if (file) return std::move(*file);
    file = File::open(options_.place, kNewSlots, Access::kWrite);
    if (file && !file->tryLock()) break;
    removeFile(options_.place, kNewSlots);
  }
  failLocked(options_.place);
}

void TableWriter::continueOrReplace() {
  const std::string why = openSlots();
  if (!why.empty()) return replace(why, nullptr);
  try {
    removeLeftOvers(options_.place);
    takeOver();
    release(header().takeovers, relaxed(header().takeovers) + 1);
    start_ = Start::kContinued;
  } catch (const CorruptionDetectedException& corrupt) {
    replace(corrupt.what(), nullptr);
  }
}

// Opens what is there. Returns why it cannot be continued, or nothing.
std::string TableWriter::openSlots() {
  SlotFile::Found found{};
  try {
    std::optional<SlotFile> slots =
        SlotFile::open(options_.place, Access::kWrite, found, options_.hints);
    if (found == SlotFile::Found::kOtherBoot) return "it was written before the machine restarted";
    if (!slots) return "its first writer was ended before it was complete";
    if (slots->schema().description != options_.schema.description ||
        slots->schema().keyBytes != options_.schema.keyBytes ||
        slots->schema().valueBytes != options_.schema.valueBytes) {
      return refuseSchema(slots->schema());
    }
    slots_.emplace(std::move(*slots));
    return "";
  } catch (const CorruptionDetectedException& corrupt) {
    return corrupt.what();
  } catch (const Error& error) {
    if (error.code() != ErrorCode::version || !options_.replaceOtherSchema) throw;
    return error.what();
  }
}

std::string TableWriter::refuseSchema(const Schema& found) const {
  std::string text = "its records have another description, in " + options_.place.path(kSlotsFile) +
                     ":\n" + found.description + "instead of this program's\n" +
                     options_.schema.description;
  if (options_.replaceOtherSchema) return text;
  throw Error(ErrorCode::schema, options_.place.table, "",
              text + "set Options::replaceOtherSchema to replace the table");
}

// A new incarnation in the place of what is there. The new file is locked before it gets its
// name, and `slots` comes last: until then the old table stays what it was.
void TableWriter::replace(const std::string& why, const TableWriter* source) {
  const Place& place = options_.place;
  removeLeftOvers(place);
  std::optional<File> file = File::create(place, kNewSlots, options_.mode);
  if (!file || !file->tryLock()) failLocked(place);
  const std::optional<SlotFile> old(std::move(slots_));
  const std::optional<File> oldLock(std::move(lock_));  // kept until the new one has its name
  lock_.emplace(std::move(*file));
  fillSlots(source);
  buildIndexAndLog();
  slots_->complete();
  if (old) release(old->memory().header().retired, 1);
  lock_->rename(kSlotsFile);
  start_ = Start::kReplaced;
  whyReplaced_ = why;
}

void TableWriter::fillSlots(const TableWriter* source) {
  SlotFile::Settings settings;
  settings.identity = newIdentity(options_.place);
  settings.schema = options_.schema;
  settings.maxRecords = options_.maxRecords;
  settings.capacity = source != nullptr ? source->capacity() : firstCapacity();
  settings.sequence = source != nullptr ? source->appended() : options_.firstSequence;
  settings.hints = options_.hints;
  slots_.emplace(SlotFile::create(options_.place, lock_->reopenAs(kSlotsFile), settings));
  appended_ = published_ = settings.sequence;
  allocator_ = {};  // of a table that turned out to contradict itself
  size_ = 0;
  if (source == nullptr) return allocator_.extend(settings.capacity);
  release(header().origin, relaxed(source->header().origin));
  release(header().takeovers, relaxed(source->header().takeovers));
  copySlots(*source, slots_->memory());
  adoptSlots();
}

uint64_t TableWriter::firstCapacity() const {
  const uint64_t wanted = std::max<uint64_t>(options_.records, 1);
  return options_.maxRecords == 0 ? wanted : std::min(wanted, options_.maxRecords);
}

void TableWriter::buildIndexAndLog() {
  rebuildIndex(1);
  log_.emplace(LogFile::create(options_.place, slots_->identity(), 1, wantedLogEntries(),
                               appended_ + 1, options_.mode));
  log_->complete();
}

// The content of a file that has replaced the old ones does not matter, unless a writer has it:
// its lock is held until the new file has the name.
std::unique_ptr<TableWriter> TableWriter::recreate() const {
  const std::optional<File> there = isInPlace() ? std::nullopt : lockOccupant(options_.place);
  std::unique_ptr<TableWriter> table(new TableWriter(options_));
  table->replace("its files were removed or replaced", this);
  release(header().retired, 1);
  if (table->isInPlace()) return table;
  throw Error(ErrorCode::system, options_.place.table, "",
              options_.place.path(kSlotsFile) + " was removed or replaced again at once");
}

}  // namespace Zorbe::Table
