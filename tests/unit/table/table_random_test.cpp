// SPDX-License-Identifier: MIT
//
// Random operations, against a map that has the same done to it.
#include "support/table_fixture.h"

#include <ostream>
#include <random>

namespace Zorbe::Test {
namespace {

using Table::TableWriter;

struct Course {
  const char* name;
  uint64_t records;
  uint64_t maxRecords;
  uint64_t logEntries;
  uint64_t keys;
  uint64_t firstSequence;
};

// Otherwise the test's full name has the bytes of the parameter, which differ between runs.
void PrintTo(const Course& course, std::ostream* out) {
  *out << course.name;
}

class TableRandom : public TableTest, public testing::WithParamInterface<Course> {
 protected:
  TableRandom() {
    options.records = GetParam().records;
    options.maxRecords = GetParam().maxRecords;
    options.logEntries = GetParam().logEntries;
    options.firstSequence = GetParam().firstSequence;
  }

  uint64_t below(uint64_t limit) { return random_() % limit; }

  void change(TableWriter& table) {
    const uint64_t key = below(GetParam().keys) * 0x9e3779b97f4a7c15u;
    if (below(3) == 0) {
      ASSERT_EQ(erase(table, key), records_.erase(key) == 1);
      return;
    }
    const uint64_t number = below(1 << 20);
    const bool isFull = options.maxRecords != 0 && records_.size() == options.maxRecords;
    if (isFull && records_.count(key) == 0) {
      ASSERT_THROW(put(table, key, number), Table::Error);
      return;
    }
    put(table, key, number);
    records_[key] = number;
  }

  template <class T>
  void compare(T& table) {
    for (uint64_t i = 0; i < GetParam().keys; ++i) {
      const uint64_t key = i * 0x9e3779b97f4a7c15u;
      const auto expected = records_.find(key);
      const std::optional<uint64_t> found = get(table, key);
      ASSERT_EQ(found.has_value(), expected != records_.end()) << "key " << i;
      if (found) {
        ASSERT_EQ(*found, expected->second) << "key " << i;
      }
    }
  }

  std::mt19937_64 random_{42};
  std::unordered_map<uint64_t, uint64_t> records_;
};

TEST_P(TableRandom, WriterReadersAndFollowersAgreeWithAMap) {
  auto table = openWriter();
  const auto reader = openReader();
  const auto source = openReader();
  auto copy = std::make_unique<Copy>(*source);
  for (unsigned round = 0; round < 60; ++round) {
    for (uint64_t i = below(2 * GetParam().keys); i > 0; --i) {
      change(*table);
      if (HasFatalFailure()) return;
      if (below(16) == 0) table->publish();
      if (below(64) == 0) copy->drain();
    }
    if (below(8) == 0) {
      table.reset();
      table = openWriter();
      ASSERT_EQ(table->start(), TableWriter::Start::kContinued);
    }
    table->publish();
    copy->drain();
    ASSERT_EQ(table->size(), records_.size());
    ASSERT_EQ(copy->records, records_);
    ASSERT_EQ(copy->torn, 0u);
    compare(*table);
    compare(*reader);
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Courses, TableRandom,
    testing::Values(Course{"Roomy", 512, 0, 0, 300, 0}, Course{"Growing", 1, 0, 0, 2000, 0},
                    Course{"SmallLog", 8, 0, 4, 200, 0}, Course{"Limited", 50, 50, 16, 80, 0},
                    Course{"WrappingTags", 64, 0, 8, 100, (uint64_t{1} << 32) - 500},
                    Course{"LargeLog", 8, 0, 4096, 100, 0}),
    [](const auto& course) { return course.param.name; });

}  // namespace
}  // namespace Zorbe::Test
