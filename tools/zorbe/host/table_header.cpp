// SPDX-License-Identifier: MIT
#include "host/table_header.h"

#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/table/error.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "memory/origin.h"
#include "memory/status.h"
#include "memory/table_files.h"

namespace Zorbe::Tool {

namespace {

using Zorbe::Table::File;
using Zorbe::Table::Geometry;
using Zorbe::Table::PeerState;
using Zorbe::Table::Place;
using Zorbe::Table::SlotFile;
using Zorbe::Table::SlotsHeader;
using Zorbe::Table::Word;

// The file's bytes from `offset` on; false when there are fewer.
bool readAll(const File& file, void* to, size_t bytes, uint64_t offset) {
  for (size_t done = 0; done < bytes;) {
    const ssize_t length = pread(file.fd(), static_cast<char*>(to) + done, bytes - done,
                                 static_cast<off_t>(offset + done));
    if (length <= 0) return false;
    done += static_cast<size_t>(length);
  }
  return true;
}

struct HeaderCopy {
  SlotsHeader header;
  bool hasStatus = false;
};

// The copy of the status that the selector chose is not written until the selector has changed: it
// is whole when the selector is the same afterwards. No writer changes it as fast as this. False
// when the file is too short.
bool copyHeader(const File& file, HeaderCopy& copy) {
  constexpr int kAttempts = 100;
  for (int attempt = 0; attempt < kAttempts && !copy.hasStatus; ++attempt) {
    Word after{0};
    if (!readAll(file, &copy.header, sizeof copy.header, 0) ||
        !readAll(file, &after, sizeof after, offsetof(SlotsHeader, statusSelector))) {
      return false;
    }
    copy.hasStatus =
        Zorbe::Table::relaxed(after) == Zorbe::Table::relaxed(copy.header.statusSelector);
  }
  return true;
}

uint64_t liveIn(const std::vector<uint64_t>& words, size_t first, size_t stride) {
  uint64_t live = 0;
  for (size_t i = first; i < words.size(); i += stride) {
    live += words[i] == Zorbe::Table::kLive ? 1 : 0;
  }
  return live;
}

// Reads the state of each slot by itself where slots are large, and all of the file otherwise.
std::optional<uint64_t> countRecords(const File& file, const Geometry& geometry, uint64_t slots) {
  constexpr uint32_t kLargeSlot = 2048;
  constexpr uint64_t kBlock = uint64_t{256} * 1024;
  const bool one = geometry.slotBytes > kLargeSlot;
  const uint64_t step = one ? 1 : kBlock / geometry.slotBytes;
  const size_t state = offsetof(Zorbe::Table::Slot, state);
  std::vector<uint64_t> words;
  uint64_t live = 0;
  for (uint64_t slot = 0; slot < slots; slot += step) {
    const uint64_t count = std::min(step, slots - slot);
    words.resize(one ? 1 : static_cast<size_t>(count * geometry.slotBytes / 8));
    const uint64_t offset = geometry.slotsOffset + slot * geometry.slotBytes + (one ? state : 0);
    if (!readAll(file, words.data(), words.size() * 8, offset)) return std::nullopt;
    live += one ? liveIn(words, 0, 1) : liveIn(words, state / 8, geometry.slotBytes / 8);
  }
  return live;
}

bool hasMagic(const SlotsHeader& header) {
  return Zorbe::Table::acquire(header.prologue.magic) ==
         Zorbe::Table::magicOf(Zorbe::Table::kSlotsMagic);
}

TableHeader headerOf(const HeaderCopy& copy) {
  using Zorbe::Table::acquire;
  using Zorbe::Table::OriginWord;
  const SlotsHeader& found = copy.header;
  TableHeader header;
  header.incarnation = acquire(found.prologue.incarnation);
  header.retired = acquire(found.retired) != 0;
  header.slots = acquire(found.capacity);
  header.maxRecords = acquire(found.maxRecords);
  header.published = acquire(found.published);
  header.publishedAt = static_cast<int64_t>(acquire(found.publishedAt));
  header.origin = OriginWord::origin(acquire(found.origin));
  header.originSince = OriginWord::since(acquire(found.origin));
  header.takeovers = acquire(found.takeovers);
  if (copy.hasStatus) header.readers = Zorbe::Table::loadStatus(found).value_or(header.readers);
  return header;
}

// Throws what the functions of the table throw.
std::optional<TableHeader> readFrom(const Place& place, const Zorbe::Table::Identity& boot,
                                    uint64_t countedBytes) {
  const std::optional<File> file =
      File::open(place, Zorbe::Table::kSlotsFile, Zorbe::Table::Access::kRead);
  const auto copy = std::make_unique<HeaderCopy>();
  const SlotsHeader& found = copy->header;
  if (!file || !copyHeader(*file, *copy) || !hasMagic(found)) return std::nullopt;
  static_cast<void>(
      Zorbe::Table::isComplete(place, file->path(), found.prologue, Zorbe::Table::kSlotsMagic));
  TableHeader header = headerOf(*copy);
  header.ofThisBoot = Zorbe::Table::identityIn(found.prologue).isSameBoot(boot);
  header.schema = SlotFile::schemaIn(place, file->path(), found);
  const Geometry geometry(header.schema.keyBytes, header.schema.valueBytes);
  SlotFile::checkCapacity(place, *file, geometry, header.slots);
  if (geometry.fileBytes(header.slots) <= countedBytes) {
    header.records = countRecords(*file, geometry, header.slots);
  }
  return header;
}

// 0 when the time of the header is before `since`: the words may hold anything.
uint64_t elapsed(int64_t now, int64_t since) {
  return since < now ? static_cast<uint64_t>(now) - static_cast<uint64_t>(since) : 0;
}

}  // namespace

uint64_t lagOf(const TableHeader& header, const Zorbe::Table::Peer& peer) {
  if (peer.state != PeerState::behind || peer.reported >= header.published) return 0;
  return header.published - peer.reported;
}

double secondsIn(const TableHeader& header, const Zorbe::Table::Peer& peer) {
  return static_cast<double>(elapsed(header.readers.now, peer.since)) / 1e9;
}

ReaderSummary summarize(const TableHeader& header) {
  ReaderSummary summary;
  for (const Zorbe::Table::Peer& peer : header.readers.peers) {
    if (peer.state == PeerState::watcher) ++summary.watchers;
    if (peer.state == PeerState::asleep) ++summary.asleep;
    if (peer.state != PeerState::behind) continue;
    ++summary.behind;
    summary.lagRecords = std::max(summary.lagRecords, lagOf(header, peer));
    summary.lagSeconds = std::max(summary.lagSeconds, secondsIn(header, peer));
  }
  return summary;
}

bool isServed(const Table& table) {
  return table.writer && table.sockets.listening;
}

HeaderReader::HeaderReader(uint64_t countedBytes)
    : boot_(Zorbe::Table::currentBoot({"", ""})), countedBytes_(countedBytes) {}

HeaderReading HeaderReader::read(const Table& table) const {
  HeaderReading reading;
  if (table.directory.find(Zorbe::Table::kSlotsFile) == nullptr) return reading;
  try {
    reading.header = readFrom({table.path, table.name}, boot_, countedBytes_);
  } catch (const Brask::Exception& failure) {  // the table's own, and those of the library
    reading.problem = failure.what();
  }
  return reading;
}

}  // namespace Zorbe::Tool
