// SPDX-License-Identifier: MIT
#include "stress/fuzz/hostile_table.h"

#include "support/file_content.h"
#include "support/table_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace Zorbe::Test::Fuzz {

namespace {

constexpr const char* kNames[] = {"slots", "buckets", "conquer.1", "conquer.2"};

const uint64_t kWords[] = {0,          1,          2,          3,          7,
                           63,         64,         65,         0x7fffffff, 0xffffffff,
                           1ull << 32, 1ull << 62, 1ull << 63, ~0ull,      ~0ull - 1};

void put(Table::TableWriter& table, uint64_t key, uint64_t number) {
  const Value value = Value::of(number);
  table.put(&key, &value);
}

}  // namespace

HostileTable::HostileTable() {
  options_.place = {root_.path(), "t", std::nullopt};
  options_.schema = {8, kValueBytes, "key u8 0\nvalue V42 8\n"};
  options_.records = kKeys;
  options_.logEntries = 64;
  const auto table = Table::TableWriter::open(options_);
  for (uint64_t key = 0; key < kKeys - 8; ++key) put(*table, key, key);
  for (uint64_t key = 0; key < 6; ++key) EXPECT_TRUE(table->erase(&key));
  table->publish();
  earlier_ = read();
  for (uint64_t key = 3; key < 12; ++key) put(*table, key, 100 + key);
  const uint64_t erased = 20;
  EXPECT_TRUE(table->erase(&erased));
  table->publish();
  put(*table, 1, 101);
  put(*table, 30, 130);
  later_ = read();
}

std::unique_ptr<Table::TableReader> HostileTable::openReader() const {
  return Table::TableReader::open({options_.place, {}});
}

std::string HostileTable::path(size_t file) const {
  return options_.place.path(kNames[file]);
}

HostileTable::Contents HostileTable::read() const {
  Contents contents;
  for (size_t file = 0; file < kFiles; ++file) contents[file] = contentOf(path(file));
  return contents;
}

void HostileTable::restore(const Contents& contents) const {
  for (size_t file = 0; file < kFiles; ++file) {
    for (const char* suffix : {"", ".new"}) {
      static_cast<void>(::unlink((path(file) + suffix).c_str()));
    }
    if (!contents[file].empty()) putContent(path(file), contents[file]);
  }
}

void HostileTable::advance() const {
  for (size_t file = 0; file < kFiles; ++file) {
    if (later_[file].empty()) continue;
    std::fstream stream(path(file), std::ios::binary | std::ios::in | std::ios::out);
    stream << later_[file];
  }
}

void HostileTable::damage(Input& input, Damage kind) const {
  for (unsigned places = input.below(25); places > 0 && !input.atEnd(); --places) {
    const uint8_t choice = input.byte();
    const size_t file = choice % kFiles;
    const unsigned action = choice / kFiles % 8;
    if (action < 4 || kind == Damage::kWords) {
      overwriteWord(input, file);
    } else {
      change(input, file, action);
    }
  }
}

// In the first words of a file, or anywhere.
void HostileTable::overwriteWord(Input& input, size_t file) const {
  const int fd = ::open(path(file).c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return;
  struct stat status {};
  EXPECT_EQ(::fstat(fd, &status), 0);
  const auto at = input.number<uint16_t>();
  const uint64_t limit = static_cast<uint64_t>(status.st_size) / 8;
  const uint64_t word = at % 2 == 0 ? at / 2 % 64 : at / 2;
  if (word < limit) {
    const auto offset = static_cast<off_t>(word * 8);
    uint64_t value = 0;
    EXPECT_EQ(::pread(fd, &value, sizeof value, offset), ssize_t{sizeof value});
    const unsigned how = input.below(std::size(kWords) + 4);
    if (how < std::size(kWords)) {
      value = kWords[how];
    } else {
      value = how % 2 == 0 ? input.number<uint64_t>() : value + input.byte() - 128;
    }
    EXPECT_EQ(::pwrite(fd, &value, sizeof value, offset), ssize_t{sizeof value});
  }
  EXPECT_EQ(::close(fd), 0);
}

void HostileTable::change(Input& input, size_t file, unsigned action) const {
  const std::string name = path(file);
  if (action == 4) {
    static_cast<void>(::truncate(name.c_str(), input.number<uint16_t>()));
  } else if (action == 5) {
    static_cast<void>(::truncate(name.c_str(), off_t{1} << input.below(27)));
  } else if (action == 6) {
    static_cast<void>(::unlink(name.c_str()));
  } else {
    putContent(name, input.text());
  }
}

uint64_t HostileTable::kilobytes() const {
  uint64_t blocks = 0;
  for (size_t file = 0; file < kFiles; ++file) {
    struct stat status {};
    if (::stat(path(file).c_str(), &status) == 0) blocks += static_cast<uint64_t>(status.st_blocks);
  }
  return blocks / 2;
}

}  // namespace Zorbe::Test::Fuzz
