// SPDX-License-Identifier: MIT
//
// What View reads by itself, against what the library reads.
#include "unit/table/window_fixture.h"

#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

namespace Zorbe::Test {
namespace {

using Table::TableReader;

TEST_F(WindowTest, RandomTablesAreReadAsTheLibraryReadsThem) {
  options.records = 1;
  options.logEntries = 16;
  auto table = openWriter();
  mapTable();
  const TableView view = makeView();
  std::mt19937_64 random(3);
  constexpr uint64_t kKeys = 700;
  for (int round = 0; round < 60; ++round) {
    const uint64_t keys = 1 + random() % kKeys;
    for (uint64_t i = random() % 300; i > 0; --i) {
      const uint64_t key = random() % keys;
      if (random() % 3 == 0) {
        erase(*table, key);
      } else {
        put(*table, key, random() % 1000);
      }
    }
    if (round % 20 == 19) {
      ASSERT_EQ(::unlink(path("slots").c_str()), 0);
      table = table->recreate();
      mapTable();
    }
    const auto fresh = openReader();
    for (uint64_t key = 0; key < kKeys; ++key) {
      const std::optional<uint64_t> expected = TableTest::get(*fresh, key);
      ASSERT_EQ(get(view, key), expected) << "round " << round << ", key " << key;
    }
  }
}

// A writer that never rests, under a view of its own mapping: what a checker of data races (preset
// tsan) looks at, and without one whether any record that is read is a mixture.
TEST_F(WindowTest, RecordsAreWholeUnderAWriterThatNeverRests) {
  options.records = 64;
  const auto table = openWriter();
  constexpr uint64_t kKeys = 4;
  fill(*table, kKeys);
  shared_->set(TableReader::over(*table));
  const TableView view = makeView();
  std::vector<Table::Handle<uint64_t>> handles;
  for (uint64_t key = 0; key < kKeys; ++key) handles.push_back(*view.find(key));
  std::atomic<bool> finished{false};
  std::thread writer([&] {
    for (uint64_t number = kKeys; number < 300'000; ++number) put(*table, number % kKeys, number);
    finished.store(true, std::memory_order_relaxed);
  });
  uint64_t newest[kKeys] = {};
  uint64_t wrong = 0;
  const uint64_t before = window_->calls;
  uint64_t reads = 0;
  const auto see = [&](uint64_t key, const Value& value) {
    const bool isRight =
        value.isWhole() && value.number() % kKeys == key && value.number() >= newest[key];
    if (!isRight) ++wrong;
    newest[key] = value.number();
    ++reads;
  };
  while (!finished.load(std::memory_order_relaxed)) {
    for (uint64_t key = 0; key < kKeys; ++key) {
      see(key, view.get(key)->value());
      Bytes bytes{};
      if (!view.read(handles[static_cast<size_t>(key)], bytes)) ++wrong;
      see(key, bytes.value());
    }
  }
  writer.join();
  EXPECT_EQ(wrong, 0u);
  EXPECT_GT(reads, 0u);
  EXPECT_LT(window_->calls - before, reads);
}

}  // namespace
}  // namespace Zorbe::Test
