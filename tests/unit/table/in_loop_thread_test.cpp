// SPDX-License-Identifier: MIT
//
// A table's writer and readers in one process, each on a loop of its own thread.
#include "support/record.h"

#include "support/fixture.h"
#include "support/roles.h"

#include <zorbe/table/in_loop.h>

#include <atomic>
#include <map>
#include <thread>

namespace Zorbe::Test {
namespace {

class InLoopThread : public ZorbeTest {
 protected:
  // What a thread has.
  struct Party {
    explicit Party(const std::string& root) {
      options.log = &log;
      options.root = root;
    }
    Brask::Linux::EventLoop loop;
    RecordingHandler log;
    Table::Options options;
  };

  // Serves until every reader has read everything.
  void write() {
    Party party(rootPath());
    Table::LoopWriter<uint32_t, Record> writer("t", party.options);
    for (uint32_t key = 0; key < kRecords; ++key) {
      writer.put(key, {key, static_cast<int32_t>(7 * key)});
      if (key % 3 == 0) writer.publish();
      party.loop.turn(0);
    }
    EXPECT_TRUE(turnUntil(party.loop, [&] { return finished_.load() == kReaders; }));
  }

  void read() {
    Party party(rootPath());
    Table::LoopReader<uint32_t, Record> reader("t", party.options);
    std::map<uint32_t, Record> copy;
    reader.onReady([&] {
      while (const auto change = reader.next()) {
        if (change->kind == Table::Kind::put) copy[change->key] = change->value;
      }
    });
    EXPECT_TRUE(turnUntil(party.loop, [&] { return copy.size() == kRecords; }));
    for (const auto& [key, value] : copy) {
      EXPECT_EQ(value.a, key);
      EXPECT_EQ(value.b, 7 * value.a);
    }
    finished_.fetch_add(1);
  }

  static constexpr unsigned kReaders = 3;
  static constexpr uint32_t kRecords = 2000;  // the table grows under its readers

 private:
  std::atomic<unsigned> finished_{0};
};

TEST_F(InLoopThread, ReadersGetEveryRecordOfAWriter) {
  std::vector<std::thread> readers;
  for (unsigned i = 0; i < kReaders; ++i) readers.emplace_back([this] { read(); });
  std::thread writer([this] { write(); });
  for (std::thread& reader : readers) reader.join();
  writer.join();
}

}  // namespace
}  // namespace Zorbe::Test
