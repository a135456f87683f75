// SPDX-License-Identifier: MIT
#pragma once

#include "support/fixture.h"
#include "support/table_errors.h"

#include "memory/follower.h"
#include "memory/table_reader.h"
#include "memory/table_writer.h"

#include <sys/stat.h>

#include <array>
#include <memory>
#include <unordered_map>
#include <vector>

namespace Zorbe::Test {

/// A value whose words all follow from one number, so that a mixture of two shows.
struct Value {
  std::array<uint64_t, 5> words{};
  uint16_t tail = 0;

  static Value of(uint64_t number) {
    Value value;
    for (size_t i = 0; i < value.words.size(); ++i) value.words[i] = number * (2 * i + 1) + i;
    value.tail = static_cast<uint16_t>(number);
    return value;
  }
  uint64_t number() const { return words[0]; }
  bool isWhole() const {
    const Value whole = of(number());
    return words == whole.words && tail == whole.tail;
  }
};
inline constexpr uint32_t kValueBytes = 42;  // not a multiple of a word

/// A table of 8-byte keys and Values in a directory of its own.
class TableTest : public ZorbeTest {
 protected:
  TableTest() {
    EXPECT_EQ(::mkdir(inRoot("t").c_str(), 0755), 0);
    options.place = {inRoot("t"), "t", std::nullopt};
    options.schema = {8, kValueBytes, "key u8 0\nvalue V42 8\n"};
    options.records = 16;
  }

  std::unique_ptr<Table::TableWriter> openWriter() { return Table::TableWriter::open(options); }
  std::unique_ptr<Table::TableReader> openReader() {
    return Table::TableReader::open({options.place, {}});
  }

  static void put(Table::TableWriter& table, uint64_t key, uint64_t number) {
    const Value value = Value::of(number);
    table.put(&key, &value);
  }
  /// Puts the keys from 0 on, each with itself as the number.
  static void fill(Table::TableWriter& table, uint64_t count) {
    for (uint64_t key = 0; key < count; ++key) put(table, key, key);
  }

  /// Makes the table with that many records, which are published.
  void makeFilledTable(uint64_t count) {
    const auto table = openWriter();
    fill(*table, count);
    table->publish();
  }

  static bool erase(Table::TableWriter& table, uint64_t key) { return table.erase(&key); }

  /// The number of a key's value; nothing when it has no record. Fails on a torn one.
  template <class T>
  static std::optional<uint64_t> get(T& table, uint64_t key) {
    Value value;
    if (!table.get(&key, &value)) return std::nullopt;
    EXPECT_TRUE(value.isWhole()) << "key " << key;
    return value.number();
  }

  std::string path(const std::string& file) const { return options.place.path(file); }

  Table::WriterOptions options;
};

/// Keeps a copy of a table by applying what a follower delivers.
class Copy {
 public:
  explicit Copy(Table::TableReader& reader) : follower(reader) {}

  /// Applies everything that there is; returns the number of changes.
  size_t drain() {
    size_t changes = 0;
    while (step()) ++changes;
    return changes;
  }

  bool step();

  Table::Follower follower;
  std::unordered_map<uint64_t, uint64_t> records;
  size_t resets = 0;
  size_t torn = 0;

 private:
  std::unordered_map<uint64_t, uint64_t> scanned_;
  bool scanning_ = false;
};

}  // namespace Zorbe::Test
