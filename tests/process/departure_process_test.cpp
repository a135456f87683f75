// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <sstream>

#include "process/process_fixture.h"

namespace Zorbe::Test {
namespace {

constexpr unsigned kManyKills = 50;
constexpr unsigned kManyReaders = 20;

class WriterDepartures : public ProcessTest {
 protected:
  struct Counts {
    unsigned connections;
    unsigned departures;
  };

  // To how many writers it was connected, and how many departures were reported to it.
  static Counts counts(const Child& follower) {
    follower->send("count");
    Counts counted = {};
    std::string connections;
    std::string departures;
    std::istringstream(follower->awaitLine("connections ")) >> connections >> counted.connections >>
        departures >> counted.departures;
    EXPECT_EQ(departures, "departures");
    return counted;
  }

  static void expectCounts(const Child& follower, unsigned connections, unsigned departures) {
    const Counts counted = counts(follower);
    EXPECT_EQ(counted.connections, connections);
    EXPECT_EQ(counted.departures, departures);
  }
};

// A writer that is being killed may end connections before its socket stops to listen: a
// reader that is quick gets one more, which ends at once, and this is reported, too.
TEST_F(WriterDepartures, EachReaderIsNotifiedOfEachKillOncePerConnection) {
  const auto followers = startFollowers(kManyReaders);
  for (unsigned kill = 1; kill <= kManyKills; ++kill) {
    const Child writer = startWriter();
    publishTo(writer, followers, kill);
    writer->kill();
    // Every other time the next writer is there before the departure is reported.
    if (kill % 2 == 0) awaitDeparture(followers);
  }
  for (const Child& follower : followers) {
    const Counts counted = counts(follower);
    EXPECT_GE(counted.connections, kManyKills);
    EXPECT_EQ(counted.departures, counted.connections);
  }
  leave(followers);
}

TEST_F(WriterDepartures, AReaderThatWasThereFirstFollowsTheWriter) {
  const auto followers = startFollowers(1);
  expectCounts(followers[0], 0, 0);
  const Child writer = startWriter();
  publishTo(writer, followers, 2);
  expectCounts(followers[0], 1, 0);
  leave(followers);
  leave(writer);
}

TEST_F(WriterDepartures, AWriterThatExitsInOrderIsReportedOnce) {
  const auto followers = startFollowers(3);
  const Child writer = startWriter();
  publishTo(writer, followers);
  leave(writer);
  awaitDeparture(followers);
  const Child next = startWriter();
  publishTo(next, followers);
  for (const Child& follower : followers) expectCounts(follower, 2, 1);
  leave(followers);
  leave(next);
}

TEST_F(WriterDepartures, WithoutAWriterAReaderIsNotifiedFromTheLoopOnly) {
  ProcessContext context;
  Departures departures(context.handler, context.root);
  departures.watch();
  EXPECT_EQ(departures.misses, 1u);
  EXPECT_TRUE(turnUntil(context.loop, [&] { return departures.misses == 3; }));
  EXPECT_EQ(departures.departures, 0u);
}

}  // namespace
}  // namespace Zorbe::Test
