// SPDX-License-Identifier: MIT
//
// A writer takes over files with arbitrary content. The result is a table: readers and the next
// writer find every record that is put afterwards. Words that another process overwrites later
// neither crash the writer nor hang it.
#include "stress/fuzz/fuzzer.h"
#include "stress/fuzz/hostile_table.h"
#include "support/table_fixture.h"

#include <map>

namespace Zorbe::Test::Fuzz {
namespace {

using Table::TableWriter;

class Takeover {
 public:
  explicit Takeover(Input& input) : input_(input) {}

  void run() {
    table().restoreLater();
    table().damage(input_, HostileTable::Damage::kAnything);
    auto writer = open();
    if (!writer) return;
    for (uint64_t key = 0; key <= HostileTable::kKeys; ++key) known_[key] = get(*writer, key);
    change(*writer);
    check(*writer);
    writer.reset();
    writer = TableWriter::open(table().options());
    EXPECT_EQ(writer->start(), TableWriter::Start::kContinued) << writer->whyReplaced();
    check(*writer);
    writeDamaged(*writer);
  }

 private:
  // A table that another program may need is refused: one of another version, or of other records.
  static std::unique_ptr<TableWriter> open() {
    try {
      return TableWriter::open(table().options());
    } catch (const Table::Error& error) {
      EXPECT_TRUE(error.code() == Table::ErrorCode::version ||
                  error.code() == Table::ErrorCode::schema)
          << error.what();
      return nullptr;
    }
  }

  template <class T>
  static std::optional<uint64_t> get(T& from, uint64_t key) {
    Value value;
    if (!from.get(&key, &value)) return std::nullopt;
    return value.number();
  }

  void change(TableWriter& writer) {
    for (unsigned count = input_.below(64) + 1; count > 0; --count) {
      const uint64_t key = input_.below(HostileTable::kKeys + 16);
      const uint64_t number = ++numbers_;
      const Value value = Value::of(number);
      switch (input_.below(4)) {
        case 0:
          EXPECT_EQ(get(writer, key).has_value(), writer.erase(&key));
          known_[key] = std::nullopt;
          break;
        case 1:
          static_cast<void>(writer.publish());
          break;
        default:
          writer.put(&key, &value);
          known_[key] = number;
      }
    }
  }

  void check(TableWriter& writer) {
    static_cast<void>(writer.publish());
    const auto reader = table().openReader();
    ASSERT_NE(reader, nullptr);
    for (const auto& [key, number] : known_) {
      EXPECT_EQ(get(writer, key), number) << "key " << key;
      EXPECT_EQ(get(*reader, key), number) << "key " << key;
    }
  }

  void writeDamaged(TableWriter& writer) {
    table().damage(input_, HostileTable::Damage::kWords);
    allowErrors([&] {
      for (unsigned count = input_.below(64); count > 0; --count) {
        const uint64_t key = input_.below(HostileTable::kKeys + 16);
        const Value value = Value::of(key);
        if (input_.flag()) {
          static_cast<void>(writer.erase(&key));
        } else {
          writer.put(&key, &value);
        }
        static_cast<void>(get(writer, key));
      }
      writer.repairHeaders();
    });
  }

  Input& input_;
  std::map<uint64_t, std::optional<uint64_t>> known_;
  uint64_t numbers_ = 1000;
};

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER_OF(Takeover)
