// SPDX-License-Identifier: MIT
//
// A table reaches another host's table, and does so again after each outage.
#include "unit/relay/relay_fixture.h"

namespace Zorbe::Test {
namespace {

TEST_F(RelayTest, ATableReachesAnotherHost) {
  makeAll();
  writer->put(1, {10, 0});
  writer->put(2, {20, 0});
  EXPECT_TRUE(becomeEqual());
  writer->put(1, {11, 0});
  EXPECT_TRUE(writer->erase(2));
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(contentOf(*reader), (Content{{1, 11}}));
  EXPECT_EQ(mirror->figures().transfers, 1u);
  EXPECT_EQ(publisher->figures().comparisons, 1u);
}

TEST_F(RelayTest, EveryRecordOfAGrowingTableReachesIt) {
  makeAll();
  for (uint32_t key = 0; key < 20000; ++key) writer->put(key, {key, 0});
  EXPECT_TRUE(becomeEqual());
  for (uint32_t key = 0; key < 20000; key += 3) EXPECT_TRUE(writer->erase(key));
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTest, AServerThatHasLostEverythingGetsItAgain) {
  makeAll();
  for (uint32_t key = 0; key < 100; ++key) writer->put(key, {key, 0});
  EXPECT_TRUE(becomeEqual());
  server().kill();
  writer->put(7, {70, 0});
  EXPECT_TRUE(writer->erase(8));
  server().start();
  EXPECT_TRUE(becomeEqual());
  writer->put(9, {90, 0});
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTest, AServerThatIsEmptiedWhileItRunsGetsItAgain) {
  makeAll();
  for (uint32_t key = 0; key < 100; ++key) writer->put(key, {key, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(server().ask({"FLUSHALL"}), "OK");
  writer->put(7, {70, 0});
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTest, RecordsThatWereRemovedOnTheServerReturn) {
  makeAll();
  writer->put(1, {10, 0});
  writer->put(2, {20, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(server().ask({"HDEL", "zorbe:{t}:records", std::string("\1\0\0\0", 4)}), "1");
  EXPECT_TRUE(turnUntil([&] { return server().ask({"HLEN", "zorbe:{t}:records"}) == "2"; }));
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:records", "other", "x"}), "1");
  EXPECT_TRUE(turnUntil([&] { return server().ask({"HLEN", "zorbe:{t}:records"}) == "2"; }));
}

TEST_F(RelayTest, AForeignRecordIsNoticedWhileRecordsChange) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:records", "other", "x"}), "1");
  writer->put(2, {20, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_TRUE(turnUntil([&] { return server().ask({"HLEN", "zorbe:{t}:records"}) == "2"; }));
}

// A comparison does not find the record: neither the server has it, nor the table.
TEST_F(RelayTest, ARecordThatWasRemovedOnTheServerAndThenErasedIsErasedOnTheMirror) {
  makeAll();
  writer->put(1, {10, 0});
  writer->put(2, {20, 0});
  EXPECT_TRUE(becomeEqual());
  publisher.reset();
  EXPECT_EQ(server().ask({"UNLINK", "zorbe:{t}:records"}), "1");
  EXPECT_TRUE(writer->erase(2));
  makePublisher();
  EXPECT_TRUE(becomeEqual());
}

// Its erased records must not return from a server that was set back.
TEST_F(RelayTest, AMirrorWhoseRecordsWereAllErasedWaitsForThePublisher) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  const std::string about = server().ask({"DUMP", "zorbe:{t}:about"});
  const std::string records = server().ask({"DUMP", "zorbe:{t}:records"});
  EXPECT_TRUE(writer->erase(1));
  EXPECT_TRUE(becomeEqual());
  publisher.reset();
  EXPECT_EQ(server().ask({"RESTORE", "zorbe:{t}:about", "0", about, "REPLACE"}), "OK");
  EXPECT_EQ(server().ask({"RESTORE", "zorbe:{t}:records", "0", records, "REPLACE"}), "OK");
  EXPECT_EQ(server().ask({"UNLINK", "zorbe:{t}:changes"}), "1");
  EXPECT_TRUE(turnUntil([&] { return logs("the server has older records: they are not taken"); }));
  EXPECT_EQ(mirror->figures().transfers, 1u);
  makePublisher();
  EXPECT_TRUE(turnUntil([&] { return mirror->figures().transfers == 2; }));
  EXPECT_EQ(contentOf(*reader), Content());
}

TEST_F(RelayTest, AForeignEntryOfTheStreamIsPassedOver) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_NE(server().ask({"XADD", "zorbe:{t}:changes", "*", "a", "b"}), "");
  EXPECT_TRUE(turnUntil([&] { return mirror->figures().unusable == 1; }));
  writer->put(1, {11, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(mirror->figures().transfers, 1u);
}

// Its highest possible id would leave no room for another one.
TEST_F(RelayTest, AStreamWithTheLastIdIsReplaced) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  const std::string highest = "18446744073709551615-18446744073709551615";
  EXPECT_EQ(server().ask({"XADD", "zorbe:{t}:changes", highest, "a", "b"}), highest);
  writer->put(1, {11, 0});
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTest, ATableSaysThatItsMirrorHasEnded) {
  makeAll();
  EXPECT_TRUE(turnUntil([&] { return reader->info().origin == Table::Origin::mirrored; }));
  mirror.reset();
  EXPECT_EQ(reader->info().origin, Table::Origin::mirroredLost);
}

TEST_F(RelayTest, AMirrorOfAMirrorKnowsThatTheFirstSourceIsLost) {
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  auto options = publishing();
  options.reading = at("there");
  options.name = "second";
  const Relay::Publisher second(options, handler);
  const auto source = [&] { return server().ask({"HGET", "zorbe:{second}:about", "source"}); };
  EXPECT_TRUE(turnUntil([&] { return source() == "live"; }));
  writer.reset();
  EXPECT_TRUE(turnUntil([&] { return source() == "lost"; }));
}

TEST_F(RelayTest, ARestartedMirrorWritesOnlyDifferences) {
  makeAll();
  for (uint32_t key = 0; key < 100; ++key) writer->put(key, {key, 0});
  EXPECT_TRUE(becomeEqual());
  const uint64_t published = reader->info().published;
  mirror.reset();
  writer->put(7, {70, 0});
  EXPECT_TRUE(writer->erase(8));
  makeMirror();
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(reader->info().published, published + 2);
}

TEST_F(RelayTest, ATrimmedStreamMakesTheMirrorReadEverything) {
  makeAll();
  for (uint32_t key = 0; key < 100; ++key) writer->put(key, {key, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(server().ask({"DEL", "zorbe:{t}:changes"}), "1");
  writer->put(7, {70, 0});
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTest, GarbageOnTheServerIsLeftOutAndRemoved) {
  EXPECT_EQ(server().ask({"SET", "zorbe:{t}:changes", "x"}), "OK");
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:records", "key", "value", "abcd", "short"}), "2");
  makeAll();
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(server().ask({"HLEN", "zorbe:{t}:records"}), "1");
  publisher.reset();
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:records", "key", "value"}), "1");
  auto options = mirroring();
  options.table = "other";
  mirror = std::make_unique<Relay::Mirror>(options, handler);
  reader = std::make_unique<Reader>("other", at("there"));
  EXPECT_TRUE(becomeEqual());
  EXPECT_EQ(mirror->figures().unusable, 1u);
}

TEST_F(RelayTest, AMirrorSaysWhetherItsSourceIsThere) {
  makeAll();
  writer->put(1, {10, 0});
  const auto becomes = [&](Table::Origin origin) {
    return turnUntil([&] { return reader->info().origin == origin; });
  };
  EXPECT_TRUE(becomes(Table::Origin::mirrored));
  writer.reset();
  EXPECT_TRUE(becomes(Table::Origin::mirroredLost));
  EXPECT_EQ(contentOf(*reader), (Content{{1, 10}}));
  writer = std::make_unique<Writer>("t", at("here"));
  EXPECT_TRUE(becomes(Table::Origin::mirrored));
  server().stop();
  EXPECT_TRUE(becomes(Table::Origin::mirroredLost));
  server().resume();
  EXPECT_TRUE(becomes(Table::Origin::mirrored));
}

TEST_F(RelayTest, AServerThatEvictsIsRefused) {
  serverOptions = {"--maxmemory-policy", "allkeys-lru"};
  makeAll();
  EXPECT_TRUE(turnUntil([&] { return logs("would remove records; set it to noeviction"); }));
  EXPECT_EQ(server().ask({"CONFIG", "SET", "maxmemory-policy", "noeviction"}), "OK");
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTest, AFullServerGetsTheRestWhenItHasRoom) {
  serverOptions = {"--maxmemory", "3mb"};
  makeAll();
  for (uint32_t key = 0; key < 30000; ++key) writer->put(key, {key, 0});
  EXPECT_TRUE(turnUntil([&] { return logs("OOM command not allowed"); }));
  EXPECT_EQ(server().ask({"CONFIG", "SET", "maxmemory", "100mb"}), "OK");
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTest, ATableOfThisHostIsNotOverwritten) {
  {
    Writer own("t", at("there"));
    own.put(1, {5, 0});
  }
  writer = std::make_unique<Writer>("t", at("here"));
  writer->put(1, {10, 0});
  makePublisher();
  makeMirror();
  EXPECT_THROW(turnUntil([] { return false; }), Relay::UsageError);
  Reader own("t", at("there"));
  EXPECT_EQ(contentOf(own), (Content{{1, 5}}));
}

}  // namespace
}  // namespace Zorbe::Test
