// SPDX-License-Identifier: MIT
//
// One publisher at a time, and what it does about a table that changes all the time.
#include "unit/relay/relay_fixture.h"

namespace Zorbe::Test {
namespace {

class RelayPublisherTest : public RelayTest {};

// Each batch is full of changes, and more follow.
TEST_F(RelayPublisherTest, RecordsThatDoNotChangeReachTheServerWhileOthersChangeAllTheTime) {
  constexpr uint32_t kChanging = 20000;
  constexpr uint32_t kAll = 21000;
  Table::Options options = at("here");
  options.logEntries = 1 << 18;
  writer = std::make_unique<Writer>("t", options);
  for (uint32_t key = 0; key < kAll; ++key) writer->put(key, {key, 0});
  makePublisher();
  const auto changeAndCount = [&] {
    for (uint32_t key = 0; key < kChanging; ++key) writer->put(key, {key, 0});
    return server().ask({"HLEN", "zorbe:{t}:records"});
  };
  EXPECT_TRUE(turnUntil([&] { return changeAndCount() == std::to_string(kAll); }));
}

TEST_F(RelayPublisherTest, TheOlderOfTwoPublishersEnds) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  Relay::Publisher newer(publishing(), handler);
  EXPECT_TRUE(turnUntil([&] { return !publisher->end().empty(); }));
  EXPECT_EQ(publisher->end().rfind("another publisher of this table has taken over", 0), 0u);
  publisher.reset();
  writer->put(1, {11, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(newer.end(), "");
}

TEST_F(RelayPublisherTest, APublisherThatReturnsEndsWhenAnotherHasTakenOver) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:about", "epoch", "4000000000000000", "token", "x"}),
            "0");
  EXPECT_NE(server().ask({"CLIENT", "KILL", "TYPE", "normal"}), "0");
  EXPECT_TRUE(turnUntil([&] { return !publisher->end().empty(); }));
  EXPECT_EQ(publisher->end(),
            "another publisher of this table has taken over; its epoch is 4000000000000000");
}

// The answer to the claim was lost with the connection.
TEST_F(RelayPublisherTest, APublisherThatReturnsGoesOnWhenItHasTakenOverItself) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(turnUntil([&] { return reader->info().origin == Table::Origin::mirrored; }));
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:about", "epoch", "4000000000000000"}), "0");
  EXPECT_NE(server().ask({"CLIENT", "KILL", "TYPE", "normal"}), "0");
  writer->put(1, {11, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(publisher->end(), "");
  EXPECT_EQ(server().ask({"HGET", "zorbe:{t}:about", "epoch"}), "4000000000000001");
  EXPECT_EQ(mirror->figures().transfers, 1u);
}

TEST_F(RelayPublisherTest, ANewPublisherMakesNoMirrorReadEverything) {
  makeAll();
  for (uint32_t key = 0; key < 100; ++key) writer->put(key, {key, 0});
  EXPECT_TRUE(becomeEqual());
  publisher.reset();
  writer->put(7, {70, 0});
  EXPECT_TRUE(writer->erase(8));
  makePublisher();
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(mirror->figures().transfers, 1u);
}

}  // namespace
}  // namespace Zorbe::Test
