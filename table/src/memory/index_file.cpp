// SPDX-License-Identifier: MIT
#include <limits>
#include <utility>

#include "memory/table_files.h"

namespace Zorbe::Table {

namespace {

std::string newName(const std::string& name) {
  return name + ".new";
}

// Called under the writer's locks: a file of that name is from a writer that was killed.
File createNew(const Place& place, const std::string& name, uint64_t bytes, mode_t mode) {
  removeFile(place, newName(name));
  std::optional<File> file = File::create(place, newName(name), mode);
  if (!file) failCall(place, "open()", place.path(newName(name)), EEXIST);
  try {
    file->allocate(0, bytes);
  } catch (const Error&) {
    removeFile(place, newName(name));  // a part of it may have got its room
    throw;
  }
  return std::move(*file);
}

uint64_t lengthOf(const File& file) {
  return static_cast<uint64_t>(file.status().st_size);
}

struct Head {
  uint64_t generation;
  uint64_t size;
};

// What the header of an index or a log says, looked at before anything else is mapped. Nothing
// when the file is not complete, or of another table.
std::optional<Head> headOf(const Place& place, const File& file, const char (&magic)[9],
                           const Identity& identity) {
  if (lengthOf(file) < sizeof(Prologue)) return std::nullopt;
  const Mapping mapping(place, file, Access::kRead, sizeof(Prologue), 0);
  const Prologue& prologue = *mapping.at<Prologue>(0);
  if (!isComplete(place, file.path(), prologue, magic)) return std::nullopt;
  const Identity found = identityIn(prologue);
  if (found.incarnation != identity.incarnation || !found.isSameBoot(identity)) {
    return std::nullopt;
  }
  return Head{acquire(prologue.generation), acquire(prologue.size)};
}

// `bytes` is what follows from `size`, which is within its bounds when `isPossible`.
void checkSize(const Place& place, const File& file, bool isPossible, uint64_t size, uint64_t bytes,
               const char* what) {
  if (!isPossible || bytes > lengthOf(file)) {
    failCorrupt(place, file.path() + " tells of " + std::to_string(size) + " " + what +
                           " in a file of " + std::to_string(lengthOf(file)) + " bytes");
  }
  if (file.isMostlyHoles(bytes)) failCorrupt(place, file.path() + " is mostly holes");
}

}  // namespace

IndexFile::IndexFile(const File& file, Mapping mapping, uint64_t generation, uint64_t buckets)
    : id_(file.id()),
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
  IndexFile index(file, std::move(mapping), generation, buckets);
  index.file_.emplace(std::move(file));
  return index;
}

std::optional<IndexFile> IndexFile::open(const Place& place, Access access,
                                         const Identity& identity, uint64_t generation) {
  std::optional<File> file = File::open(place, kIndexFile, access);
  if (!file) return std::nullopt;
  const std::optional<Head> head = headOf(place, *file, kIndexMagic, identity);
  if (!head || head->generation < generation) return std::nullopt;
  const uint64_t buckets = head->size;
  const bool isPossible = buckets != 0 && buckets % IndexMemory::kGroup == 0 &&
                          buckets <= std::numeric_limits<uint32_t>::max();
  const uint64_t bytes = IndexMemory::fileBytes(buckets);
  checkSize(place, *file, isPossible, buckets, bytes, "buckets");
  return IndexFile(*file, Mapping(place, *file, access, bytes, 0), head->generation, buckets);
}

void IndexFile::complete() {
  release(mapping_.at<IndexHeader>(0)->prologue.magic, magicOf(kIndexMagic));
  file_->rename(kIndexFile);
  file_.reset();
}

LogFile::LogFile(const File& file, Mapping mapping, uint64_t generation, uint64_t entries)
    : id_(file.id()), mapping_(std::move(mapping)), generation_(generation), entries_(entries) {}

LogFile LogFile::create(const Place& place, const Identity& identity, uint64_t generation,
                        uint64_t entries, uint64_t first, mode_t mode) {
  const uint64_t bytes = fileBytes(entries);
  File file = createNew(place, logFileOf(generation), bytes, mode);
  Mapping mapping(place, file, Access::kWrite, bytes, 0);
  LogHeader& header = *mapping.at<LogHeader>(0);
  fillPrologue(header.prologue, identity, generation, entries);
  release(header.first, first);
  LogFile log(file, std::move(mapping), generation, entries);
  log.file_.emplace(std::move(file));
  return log;
}

std::optional<LogFile> LogFile::open(const Place& place, Access access, const Identity& identity,
                                     uint64_t generation) {
  std::optional<File> file = File::open(place, logFileOf(generation), access);
  if (!file) return std::nullopt;
  const std::optional<Head> head = headOf(place, *file, kLogMagic, identity);
  if (!head || head->generation != generation) return std::nullopt;
  const uint64_t entries = head->size;
  const bool isPower = entries != 0 && (entries & (entries - 1)) == 0;
  const uint64_t bytes = fileBytes(entries);
  checkSize(place, *file, isPower && entries <= kMaxLogEntries, entries, bytes, "entries");
  return LogFile(*file, Mapping(place, *file, access, bytes, 0), generation, entries);
}

void LogFile::complete() {
  release(header().prologue.magic, magicOf(kLogMagic));
  file_->rename(logFileOf(generation_));
  file_.reset();
}

}  // namespace Zorbe::Table
