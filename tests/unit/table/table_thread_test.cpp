// SPDX-License-Identifier: MIT
//
// A writer that never rests, and readers of its own mapping on other threads: no record that they
// read is a mixture.
#include "memory/status.h"

#include "support/table_fixture.h"

#include <atomic>
#include <random>
#include <thread>

namespace Zorbe::Test {
namespace {

using Table::TableReader;

constexpr uint64_t kKeys = 50;
constexpr uint64_t kPerKey = uint64_t{1} << 32;

// Numbers that tell the key and rise for each key.
uint64_t numberOf(uint64_t key, uint64_t round) {
  return key * kPerKey + round;
}

class TableConcurrency : public TableTest {
 protected:
  TableConcurrency() {
    options.records = 256;  // nothing grows under readers of one mapping
    options.logEntries = 64;
  }

  // Checks what one thread sees until the writer has finished.
  struct Observer {
    std::unordered_map<uint64_t, uint64_t> newest;
    uint64_t wrong = 0;
    uint64_t reads = 0;

    void see(uint64_t key, const Value& value) {
      ++reads;
      const bool right =
          value.isWhole() && value.number() / kPerKey == key && value.number() >= newest[key];
      if (!right) ++wrong;
      newest[key] = value.number();
    }
  };

  void getAll(TableReader& reader, Observer& observer) {
    for (uint64_t key = 0; key < kKeys; ++key) {
      Value value;
      if (reader.get(&key, &value)) observer.see(key, value);
    }
  }

  void follow(Table::Follower& follower, Observer& observer) {
    uint64_t key = 0;
    Value value;
    while (const auto change = follower.next(&key, &value)) {
      if (change->kind == Table::Follower::Kind::kPut) observer.see(key, value);
    }
  }

  template <class Body>
  std::thread start(TableReader& reader, Observer& observer, Body body) {
    return std::thread([&reader, &observer, body, this] {
      do {
        body(reader, observer);
      } while (!finished_.load(std::memory_order_relaxed));
      body(reader, observer);
    });
  }

  void writeMany(Table::TableWriter& table, uint64_t rounds) {
    std::mt19937_64 random(7);
    for (uint64_t round = 1; round <= rounds; ++round) {
      const uint64_t key = random() % kKeys;
      if (random() % 8 == 0) {
        erase(table, key);
      } else {
        put(table, key, numberOf(key, round));
      }
      if (random() % 4 == 0) table.publish();
    }
    table.publish();
    finished_.store(true, std::memory_order_relaxed);
  }

  std::atomic<bool> finished_{false};
};

TEST_F(TableConcurrency, ReadersOfOneMappingSeeWholeRecordsThatNeverGrowOlder) {
  const auto table = openWriter();
  const auto getter = TableReader::over(*table);
  const auto source = TableReader::over(*table);
  Table::Follower follower(*source);
  Observer got;
  Observer followed;
  std::thread gets =
      start(*getter, got, [this](auto& reader, auto& seen) { getAll(reader, seen); });
  std::thread follows =
      start(*source, followed, [&, this](auto&, auto& seen) { this->follow(follower, seen); });
  writeMany(*table, 100'000);
  gets.join();
  follows.join();
  EXPECT_EQ(got.wrong, 0u);
  EXPECT_EQ(followed.wrong, 0u);
  EXPECT_GT(got.reads, 0u);
  EXPECT_EQ(follower.position(), table->appended());
  for (uint64_t key = 0; key < kKeys; ++key) {
    const std::optional<uint64_t> last = get(*table, key);
    if (!last) continue;
    EXPECT_EQ(got.newest[key], *last) << key;
    EXPECT_EQ(followed.newest[key], *last) << key;
  }
}

// Each with a mapping of its own, while slots, index and log are replaced by larger ones.
TEST_F(TableConcurrency, ReadersFollowGrowthUnderAWriterThatNeverRests) {
  options.records = 1;
  options.logEntries = 0;
  const auto table = openWriter();
  const auto getter = openReader();
  const auto source = openReader();
  constexpr uint64_t kRecords = 20'000;
  std::atomic<uint64_t> written{0};
  uint64_t missing = 0;
  std::thread gets([&] {
    std::mt19937_64 random(1);
    for (uint64_t known = 0; known < kRecords;) {
      known = written.load(std::memory_order_acquire);
      if (known == 0) continue;
      const uint64_t key = random() % known;
      if (get(*getter, key) != key) ++missing;
    }
  });
  Copy copy(*source);
  std::thread follows([&] {
    while (written.load(std::memory_order_acquire) < kRecords) copy.drain();
    copy.drain();
  });
  for (uint64_t key = 0; key < kRecords; ++key) {
    put(*table, key, key);
    if (key % 16 == 0 || key + 1 == kRecords) table->publish();
    written.store(key + 1, std::memory_order_release);
  }
  gets.join();
  follows.join();
  EXPECT_EQ(missing, 0u);
  EXPECT_EQ(copy.torn, 0u);
  EXPECT_EQ(copy.records.size(), kRecords);
}

TEST_F(TableConcurrency, AStatusIsNeverAMixture) {
  const auto header = std::make_unique<Table::SlotsHeader>();
  std::thread writer([&header] {
    for (uint32_t round = 1; round <= 20'000; ++round) {
      Table::storeStatus(
          *header, {round, round, std::vector<Table::Peer>(3, {round, round, round, {}, round})});
    }
  });
  uint64_t last = 0;
  unsigned wrong = 0;
  while (last < 20'000) {
    const auto status = Table::loadStatus(*header);
    if (!status) continue;
    for (const Table::Peer& peer : status->peers) {
      if (peer.pid != status->connections || peer.reported != status->connections) ++wrong;
    }
    if (status->connections < last) ++wrong;
    last = status->connections;
  }
  writer.join();
  EXPECT_EQ(wrong, 0u);
}

}  // namespace
}  // namespace Zorbe::Test
