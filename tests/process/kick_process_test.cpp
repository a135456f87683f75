// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include "process/process_fixture.h"

namespace Zorbe::Test {
namespace {

constexpr uint64_t kManyPublishes = 100000;
constexpr unsigned kManyReaders = 20;

double upToSeconds(std::mt19937& random, double longest) {
  return std::uniform_real_distribution<double>(0, longest)(random);
}

bool oneIn(unsigned n, std::mt19937& random) {
  return random() % n == 0;
}

// Publishes in bursts with a pause of random length after each.
void runHastyWriter(Channel& parent, SharedTable& table) {
  ProcessContext context;
  TableWriter writer(context.handler, context.root, table);
  std::mt19937 random(1);
  TimerProbe pause([&] {
    writer.publish(std::min<uint64_t>(1 + random() % 100, kManyPublishes - writer.published()));
    if (writer.published() < kManyPublishes) pause.control->start(upToSeconds(random, 0.002));
  });
  writer.open();
  parent.send("listening");
  pause.control->start(0.0);
  EXPECT_TRUE(turnUntil(context.loop, [&] {
    return writer.published() == kManyPublishes && writer.readers.size() == kManyReaders &&
           writer.allCaughtUp();
  }));
  EXPECT_EQ(writer.sleepingReaders.size(), kManyReaders);
  parent.send("all caught up");
  parent.await("leave");
}

// Now and then a pass takes several turns, or passes are suspended for a while.
void runMoodyReader(Channel& parent, SharedTable& table, unsigned seed) {
  ProcessContext context;
  TableReader reader(context.handler, context.root, table);
  std::mt19937 random(seed);
  TimerProbe pause([&] { reader.notifying(true); });
  reader.passed = [&] {
    reader.conquerAgain = oneIn(4, random);
    if (!oneIn(16, random)) return;
    reader.notifying(false);
    pause.control->start(upToSeconds(random, 0.005));
  };
  reader.doConnect();
  Commands commands(parent, [&](const std::string&) { context.loop.stop(); });
  context.loop.run();
  EXPECT_EQ(reader.at(), kManyPublishes);
}

class KickProcesses : public ProcessTest {};

TEST_F(KickProcesses, EachOfManyReadersReachesTheLastOfManyPublishes) {
  const Child writer = start("writer", [this](Channel& parent) { runHastyWriter(parent, table); });
  writer->await("listening");
  std::vector<Child> readers;
  for (unsigned seed = 1; seed <= kManyReaders; ++seed) {
    readers.push_back(start("reader " + std::to_string(seed), [this, seed](Channel& parent) {
      runMoodyReader(parent, table, seed);
    }));
  }
  writer->await("all caught up");
  leave(readers);
  leave(writer);
}

// The order that loses a wake-up, made by hand: the kick that acknowledges a connection and
// the kick of a publish arrive as one batch.
template <class Reader>
class FirstKicks {
 public:
  FirstKicks(Brask::Platform::DebugHandler& handler, SharedTable& table)
      : root_(handler, "quotes", true),
        writer(handler, root_, table),
        reader(handler, root_, table) {
    writer.open();
    writer.publish();
    reader.doConnect();
    writer.handleReaderConnection();
    writer.readers.begin()->second->handleReaderData();
    writer.publish();
    reader.handleKickFromWriter();
  }

  // Lets everything happen that still may.
  void settle() {
    while (loop_.turn(0)) continue;
  }

 private:
  Brask::Linux::EventLoop loop_;
  RootPath root_;

 public:
  TableWriter writer;
  Reader reader;
};

class CarelessReader : public TableReader {
 public:
  using TableReader::TableReader;
  void writerAcknowledged() override {}
};

TEST_F(KickProcesses, AReaderWithoutAPassOnAcknowledgementSleepsBehindTheWriter) {
  FirstKicks<CarelessReader> kicks(handler, table);
  kicks.settle();
  EXPECT_EQ(kicks.writer.published(), 2u);
  EXPECT_EQ(kicks.reader.at(), 0u);
  kicks.writer.publish();
  EXPECT_TRUE(kicks.reader.isConnected());
  EXPECT_TRUE(kicks.writer.sleepingReaders.empty());
  kicks.settle();
  EXPECT_EQ(kicks.reader.at(), 0u) << "nobody wakes it any more";
}

TEST_F(KickProcesses, AReaderWithAPassOnAcknowledgementIsWithTheWriter) {
  FirstKicks<TableReader> kicks(handler, table);
  kicks.settle();
  EXPECT_EQ(kicks.reader.at(), 2u);
  EXPECT_EQ(kicks.writer.sleepingReaders.size(), 1u);
  kicks.writer.publish();
  kicks.settle();
  EXPECT_EQ(kicks.reader.at(), 3u);
}

}  // namespace
}  // namespace Zorbe::Test
