// SPDX-License-Identifier: MIT
#include <limits>
#include <utility>

#include "memory/table_files.h"

namespace Zorbe::Table {

namespace {

std::string newName(const std::string& name) {
  return name + ".new";
}

// Under the writer's locks: what lies there was left behind by a writer that was killed.
File createNew(const Place& place, const std::string& name, uint64_t bytes, mode_t mode) {
  removeFile(place, newName(name));
  std::optional<File> file = File::create(place, newName(name), mode);
  if (!file) failCall(place, "open()", place.path(newName(name)), EEXIST);
  try {
    file->allocate(bytes);
  } catch (const Error&) {
    removeFile(place, newName(name));  // a part of it may have got its room
    throw;
  }
  return std::move(*file);
}

uint64_t lengthOf(const File& file) {
  return static_cast<uint64_t>(file.status().st_size);
}

// What the headers of index and log have to fulfil; `header` is the length of either.
bool isOurs(const Place& place, const File& file, const Prologue& prologue, const char (&magic)[9],
            const Identity& identity) {
  if (!isComplete(place, file.path(), prologue, magic)) return false;
  const Identity found = identityIn(prologue);
  return found.incarnation == identity.incarnation && found.isSameBoot(identity);
}

[[noreturn]] void failSize(const Place& place, const File& file, uint64_t size, const char* what) {
  failCorrupt(place, file.path() + " tells of " + std::to_string(size) + " " + what +
                         " in a file of " + std::to_string(lengthOf(file)) + " bytes");
}

}  // namespace

IndexFile::IndexFile(std::optional<File> file, Mapping mapping, uint64_t generation,
                     uint64_t buckets)
    : file_(std::move(file)),
      mapping_(std::move(mapping)),
      generation_(generation),
      memory_(mapping_.at<char>(0), buckets, acquire(mapping_.at<IndexHeader>(0)->seed)) {}

IndexFile IndexFile::create(const Place& place, const Identity& identity, uint64_t generation,
                            uint64_t slots, mode_t mode) {
  const uint64_t buckets = IndexMemory::bucketsFor(slots);
  const uint64_t bytes = IndexMemory::fileBytes(buckets);
  File file = createNew(place, kIndexFile, bytes, mode);
  Mapping mapping(place, file, Access::kWrite, bytes, 0);
  IndexHeader& header = *mapping.at<IndexHeader>(0);
  fillPrologue(header.prologue, identity, generation, buckets);
  release(header.seed, randomNumber(place));
  return IndexFile(std::move(file), std::move(mapping), generation, buckets);
}

std::optional<IndexFile> IndexFile::open(const Place& place, Access access,
                                         const Identity& identity, uint64_t generation) {
  std::optional<File> file = File::open(place, kIndexFile, access);
  if (!file || lengthOf(*file) < kIndexEntries) return std::nullopt;
  Mapping mapping(place, *file, access, lengthOf(*file), 0);
  const Prologue& prologue = mapping.at<IndexHeader>(0)->prologue;
  if (!isOurs(place, *file, prologue, kIndexMagic, identity)) return std::nullopt;
  const uint64_t found = acquire(prologue.generation);
  if (found < generation) return std::nullopt;
  const uint64_t buckets = acquire(prologue.size);
  if (buckets == 0 || buckets % IndexMemory::kGroup != 0 ||
      buckets > std::numeric_limits<uint32_t>::max() ||
      IndexMemory::fileBytes(buckets) > lengthOf(*file)) {
    failSize(place, *file, buckets, "buckets");
  }
  return IndexFile(std::nullopt, std::move(mapping), found, buckets);
}

void IndexFile::complete() {
  release(mapping_.at<IndexHeader>(0)->prologue.magic, magicOf(kIndexMagic));
  file_->rename(kIndexFile);
  file_.reset();
}

LogFile::LogFile(std::optional<File> file, Mapping mapping, uint64_t generation, uint64_t entries)
    : file_(std::move(file)),
      mapping_(std::move(mapping)),
      generation_(generation),
      entries_(entries) {}

LogFile LogFile::create(const Place& place, const Identity& identity, uint64_t generation,
                        uint64_t entries, uint64_t first, mode_t mode) {
  const uint64_t bytes = fileBytes(entries);
  File file = createNew(place, logFileOf(generation), bytes, mode);
  Mapping mapping(place, file, Access::kWrite, bytes, 0);
  LogHeader& header = *mapping.at<LogHeader>(0);
  fillPrologue(header.prologue, identity, generation, entries);
  release(header.first, first);
  return LogFile(std::move(file), std::move(mapping), generation, entries);
}

std::optional<LogFile> LogFile::open(const Place& place, Access access, const Identity& identity,
                                     uint64_t generation) {
  std::optional<File> file = File::open(place, logFileOf(generation), access);
  if (!file || lengthOf(*file) < kLogEntries) return std::nullopt;
  Mapping mapping(place, *file, access, lengthOf(*file), 0);
  const Prologue& prologue = mapping.at<LogHeader>(0)->prologue;
  if (!isOurs(place, *file, prologue, kLogMagic, identity)) return std::nullopt;
  if (acquire(prologue.generation) != generation) return std::nullopt;
  const uint64_t entries = acquire(prologue.size);
  const bool isPower = entries != 0 && (entries & (entries - 1)) == 0;
  if (!isPower || entries > kMaxLogEntries || fileBytes(entries) > lengthOf(*file)) {
    failSize(place, *file, entries, "entries");
  }
  return LogFile(std::nullopt, std::move(mapping), generation, entries);
}

void LogFile::complete() {
  release(header().prologue.magic, magicOf(kLogMagic));
  file_->rename(logFileOf(generation_));
  file_.reset();
}

}  // namespace Zorbe::Table
