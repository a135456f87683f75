// SPDX-License-Identifier: MIT
//
// A writer and its readers in one process, each on a loop of its own thread.
#include "support/fixture.h"
#include "support/roles.h"

#include <atomic>
#include <thread>

namespace Zorbe::Test {
namespace {

class KickThreadTest : public ZorbeTest {
 protected:
  // What a thread has.
  struct Party {
    Brask::Linux::EventLoop loop;
    RecordingHandler log;
    RootPath root{log, "quotes", true};
  };

  void write() {
    Party party;
    TableWriter writer(party.log, party.root, table_);
    writer.open();
    listening_.store(true);
    EXPECT_TRUE(turnUntil(party.loop, [&] { return writer.readers.size() == kReaders; }));
    for (uint64_t i = 0; i < kPublished; ++i) {
      writer.publish();
      party.loop.turn(0);
    }
    EXPECT_TRUE(turnUntil(party.loop, [&] { return writer.allCaughtUp(); }));
  }

  // Reads until the writer has disconnected.
  void read() {
    Party party;
    TableReader reader(party.log, party.root, table_);
    bool lost = false;
    reader.lost = [&] { lost = true; };
    while (!listening_.load()) std::this_thread::yield();
    reader.doConnect();
    EXPECT_TRUE(turnUntil(party.loop, [&] { return lost; }));
    EXPECT_EQ(reader.at(), kPublished);
  }

  static constexpr unsigned kReaders = 3;
  static constexpr uint64_t kPublished = 500;

 private:
  SharedTable table_;
  std::atomic<bool> listening_{false};
};

TEST_F(KickThreadTest, ReadersFollowAWriterToItsLastSequence) {
  std::thread writer([this] { write(); });
  std::vector<std::thread> readers;
  for (unsigned i = 0; i < kReaders; ++i) readers.emplace_back([this] { read(); });
  for (std::thread& reader : readers) reader.join();
  writer.join();
}

}  // namespace
}  // namespace Zorbe::Test
