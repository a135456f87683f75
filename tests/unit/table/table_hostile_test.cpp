// SPDX-License-Identifier: MIT
//
// Files that hold anything at all: a reader and a writer that takes over neither crash nor hang
// nor leave what they have mapped. An exception is one of the two kinds that the table
// promises.
#include "support/file_content.h"
#include "support/table_fixture.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace Zorbe::Test {
namespace {

using Table::TableReader;
using Table::TableWriter;

const uint64_t kWords[] = {0,          1,          2,          3,          7,
                           63,         64,         65,         0x7fffffff, 0xffffffff,
                           1ull << 32, 1ull << 62, 1ull << 63, ~0ull,      ~0ull - 1};

class TableHostile : public TableTest {
 protected:
  static constexpr uint64_t kRecords = 40;

  void makeTable() {
    const auto table = openWriter();
    fill(*table, kRecords);
    erase(*table, 3);
    put(*table, 4, 44);
    table->publish();
  }

  std::string bytesOf(const std::string& name) { return contentOf(path(name)); }

  // In place, as somebody does who may write the file.
  void overwrite(const std::string& name, uint64_t offset, const void* data, size_t size) {
    const int fd = ::open(path(name).c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::pwrite(fd, data, size, static_cast<off_t>(offset)), static_cast<ssize_t>(size));
    ASSERT_EQ(::close(fd), 0);
  }

  // Everything that a reader does. Returns whether it got to the end without a complaint.
  template <class Reader>
  bool readEverything(Reader&& open) {
    try {
      const std::unique_ptr<TableReader> reader = open();
      if (!reader || reader->schema().keyBytes != 8) return false;  // a client would refuse it
      if (reader->schema().valueBytes != kValueBytes) return false;
      Value value;
      for (uint64_t key = 0; key < kRecords + 5; ++key) {
        static_cast<void>(reader->get(&key, &value));
        if (const auto slot = reader->find(&key)) reader->read(*slot, &key, &value);
      }
      Table::Follower follower(*reader);
      uint64_t key = 0;
      for (unsigned i = 0; i < 10 * kRecords && follower.next(&key, &value); ++i) {
      }
      return true;
    } catch (const CorruptionDetectedException&) {
      return false;
    } catch (const Table::Error&) {
      return false;
    }
  }

  void takeOver() {
    try {
      const auto table = openWriter();
      put(*table, 7, 77);
      EXPECT_EQ(get(*table, 7), 77u);
      table->publish();
      EXPECT_TRUE(readEverything([this] { return openReader(); }));
      const auto reader = openReader();
      EXPECT_EQ(get(*reader, 7), 77u);
    } catch (const Table::Error& error) {
      // Perhaps a table that somebody needs: it is left as it is.
      EXPECT_TRUE(error.code() == Table::ErrorCode::version ||
                  error.code() == Table::ErrorCode::schema)
          << error.what();
    }
  }

  // The table as it was: the files are replaced, for the writers leave new ones.
  void restore(const std::vector<std::pair<std::string, std::string>>& files) {
    for (const auto& entry : std::filesystem::directory_iterator(options.place.directory)) {
      std::filesystem::remove(entry);
    }
    for (const auto& [name, bytes] : files) {
      std::ofstream file(path(name), std::ios::binary);
      file << bytes;
    }
  }

  std::vector<std::pair<std::string, std::string>> saveAll() {
    std::vector<std::pair<std::string, std::string>> files;
    for (const char* name : {"slots", "buckets", "conquer.1", "conquer.2"}) {
      if (::access(path(name).c_str(), F_OK) == 0) files.emplace_back(name, bytesOf(name));
    }
    return files;
  }

  void damageWords(const std::string& file, const std::vector<size_t>& offsets);
};

void TableHostile::damageWords(const std::string& file, const std::vector<size_t>& offsets) {
  makeTable();
  const auto whole = saveAll();
  const auto mapped = openReader();
  for (const size_t offset : offsets) {
    for (const uint64_t word : kWords) {
      SCOPED_TRACE(file + " at " + std::to_string(offset) + ": " + std::to_string(word));
      restore(whole);
      const auto earlier = openReader();
      overwrite(file, offset, &word, sizeof word);
      readEverything([this] { return openReader(); });
      readEverything([&] { return earlier->clone(); });
      takeOver();
      if (HasFatalFailure()) return;
    }
  }
}

std::vector<size_t> range(uint64_t from, uint64_t to) {
  std::vector<size_t> offsets;
  for (; from < to; from += 8) offsets.push_back(static_cast<size_t>(from));
  return offsets;
}

TEST_F(TableHostile, TheHeaderOfSlots) {
  damageWords("slots", range(0, offsetof(Table::SlotsHeader, statusSelector)));
}

TEST_F(TableHostile, TheImageAndTheFirstSlots) {
  const Table::Geometry geometry(8, kValueBytes);
  damageWords("slots", range(Table::Geometry::imageOffset(), Table::Geometry::imageOffset() + 64));
  damageWords("slots", range(geometry.slotsOffset, geometry.slotsOffset + 2 * geometry.slotBytes));
}

TEST_F(TableHostile, TheHeaderAndTheFirstBucketsOfTheIndex) {
  damageWords("buckets", range(0, Table::kIndexEntries + 64));
}

TEST_F(TableHostile, TheHeaderAndTheFirstEntriesOfTheLog) {
  makeTable();
  damageWords(::access(path("conquer.1").c_str(), F_OK) == 0 ? "conquer.1" : "conquer.2",
              range(0, Table::kLogEntries + 64));
}

TEST_F(TableHostile, RandomDamageInEveryFile) {
  makeTable();
  const auto whole = saveAll();
  std::mt19937_64 random(11);
  for (unsigned round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    restore(whole);
    const auto earlier = openReader();
    for (uint64_t i = random() % 20 + 1; i > 0; --i) {
      const auto& [name, bytes] = whole[static_cast<size_t>(random() % whole.size())];
      const uint64_t word = random() % 2 == 0 ? random() : kWords[random() % std::size(kWords)];
      overwrite(name, random() % (bytes.size() / 8) * 8, &word, sizeof word);
    }
    readEverything([this] { return openReader(); });
    readEverything([&] { return earlier->clone(); });
    takeOver();
    if (HasFatalFailure()) return;
  }
}

TEST_F(TableHostile, FilesThatAreCutShort) {
  makeTable();
  const auto whole = saveAll();
  for (const auto& [name, bytes] : whole) {
    for (const size_t length : {size_t{0}, size_t{1}, size_t{63}, size_t{64}, size_t{128},
                                bytes.size() / 2, bytes.size() - 8}) {
      SCOPED_TRACE(name + " cut to " + std::to_string(length));
      restore(whole);
      ASSERT_EQ(::truncate(path(name).c_str(), static_cast<off_t>(length)), 0);
      readEverything([this] { return openReader(); });
      takeOver();
    }
  }
}

TEST_F(TableHostile, AFileThatIsMostlyHolesIsNotRead) {
  makeTable();
  const uint64_t capacity = uint64_t{1} << 28;
  const Table::Geometry geometry(8, kValueBytes);
  overwrite("slots", offsetof(Table::SlotsHeader, capacity), &capacity, sizeof capacity);
  const auto length = static_cast<off_t>(geometry.fileBytes(capacity));
  ASSERT_EQ(::truncate(path("slots").c_str(), length), 0);
  EXPECT_THROW(openReader(), CorruptionDetectedException);
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
}

TEST_F(TableHostile, NothingOfATableThatContradictsItselfGetsIntoTheNewOne) {
  {
    const auto table = openWriter();
    fill(*table, 100);
    for (uint64_t key = 0; key < 90; ++key) erase(*table, key);
  }
  const Table::Geometry geometry(8, kValueBytes);
  const uint64_t odd = 7;
  overwrite("slots", geometry.fileBytes(99), &odd, sizeof odd);  // the guard of slot 99
  const auto table = openWriter();
  EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
  EXPECT_EQ(table->size(), 0u);
  EXPECT_EQ(table->capacity(), 16u);
  for (uint64_t key = 0; key < 16; ++key) put(*table, key, key + 1);
  EXPECT_EQ(table->capacity(), 16u);
  const auto reader = openReader();
  for (uint64_t key = 0; key < 16; ++key) EXPECT_EQ(get(*reader, key), key + 1);
}

TEST_F(TableHostile, AWriterStoresAgainWhatSomebodyHasOverwritten) {
  const auto table = openWriter();
  fill(*table, kRecords);
  table->publish();
  const auto reader = openReader();
  const std::string before = bytesOf("slots").substr(0, offsetof(Table::SlotsHeader, origin));
  for (size_t offset = 0; offset < before.size(); offset += 8) {
    if (offset == offsetof(Table::SlotsHeader, publishedAt)) continue;
    const uint64_t word = ~0ull;
    overwrite("slots", offset, &word, sizeof word);
    static_cast<void>(readEverything([&] { return reader->clone(); }));
    table->repairHeaders();
    EXPECT_EQ(get(*reader, 5), 5u) << offset;
  }
  std::string after = bytesOf("slots").substr(0, before.size());
  for (size_t offset = 0; offset < before.size(); offset += 8) {
    if (offset == offsetof(Table::SlotsHeader, publishedAt)) continue;
    if (before.compare(offset, 8, "\0\0\0\0\0\0\0\0", 8) == 0) continue;  // unused, or padding
    EXPECT_EQ(before.substr(offset, 8), after.substr(offset, 8)) << offset;
  }
}

TEST_F(TableHostile, AWriterThatTakesOverLosesNoRecordToALostIndexOrLog) {
  makeTable();
  for (const char* name : {"buckets", "conquer.1", "conquer.2"}) {
    static_cast<void>(::unlink(path(name).c_str()));
    const auto table = openWriter();
    EXPECT_EQ(table->start(), TableWriter::Start::kContinued) << name;
    EXPECT_EQ(table->size(), kRecords - 1) << name;
    EXPECT_EQ(get(*table, 4), 44u) << name;
    EXPECT_EQ(get(*table, 3), std::nullopt) << name;
    const auto reader = openReader();
    Copy copy(*reader);
    copy.drain();
    EXPECT_EQ(copy.records.size(), kRecords - 1) << name;
  }
}

}  // namespace
}  // namespace Zorbe::Test
