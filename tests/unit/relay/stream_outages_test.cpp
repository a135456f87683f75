// SPDX-License-Identifier: MIT
//
// What a mirror misses, and what others put into the stream.
#include "unit/relay/outage_fixture.h"

namespace Zorbe::Test {

/// A value that has nothing in common with Record.
struct Price {
  double price;
};
ZORBE_FIELDS(Price, price);

namespace {

class RelayStreamTest : public RelayOutageTest {
 protected:
  /// All of them, with a user of its own for the mirror.
  void makeAll() override {
    EXPECT_EQ(server().ask({"ACL", "SETUSER", "mirror", "on", ">secret", "~*", "+@all"}), "OK");
    makeTables();
    makePublisher();
    auto options = mirroring();
    options.server.credentials = {"mirror", "secret"};
    mirror = std::make_unique<Relay::Mirror>(options, handler);
  }

  /// The server refuses the mirror, while the publisher goes on.
  void lockMirrorOut() {
    EXPECT_EQ(server().ask({"ACL", "SETUSER", "mirror", "off"}), "OK");
    EXPECT_EQ(server().ask({"CLIENT", "KILL", "USER", "mirror"}), "1");
    EXPECT_TRUE(turnUntil([&] { return logs("WRONGPASS"); }));
  }

  void letMirrorIn() { EXPECT_EQ(server().ask({"ACL", "SETUSER", "mirror", "on"}), "OK"); }

  /// Until the server has every change so far: what follows finds them in the stream.
  void awaitServer() {
    constexpr uint32_t kMarker = 1'000'000;
    writer->put(kMarker, {newValue(), 0});
    const std::string key(reinterpret_cast<const char*>(&kMarker), sizeof kMarker);
    const std::string before = server().ask({"HGET", "zorbe:{t}:records", key});
    EXPECT_TRUE(turnUntil([&] {
      return server().ask({"HGET", "zorbe:{t}:records", key}) != before;
    }));
  }

  /// A table of values of another type at the source becomes one at the mirror, too.
  template <class Value>
  void expectReplacement(const Value& value) {
    order.reset();
    reader.reset();
    writer.reset();
    Table::Options replacing = at("here");
    replacing.replaceOtherSchema = true;
    Table::LoopWriter<uint32_t, Value> source("t", replacing);
    Table::LoopReader<uint32_t, Value> mirrored("t", at("there"));
    for (uint32_t key = 0; key < 100; ++key) source.put(key, value);
    EXPECT_TRUE(turnUntil([&] { return mirrored.size() == 100; }));
    EXPECT_TRUE(source.erase(1));
    EXPECT_TRUE(turnUntil([&] { return mirrored.size() == 99 && !mirrored.contains(1); }));
  }

  std::string trim(const std::string& length) {
    return server().ask({"XTRIM", "zorbe:{t}:changes", "MAXLEN", length});
  }
};

TEST_F(RelayStreamTest, AMirrorThatWasAwayReadsWhatItHasMissed) {
  makeAllEqual();
  lockMirrorOut();
  changeInTurns(100);
  letMirrorIn();
  expectRepair();
  EXPECT_EQ(mirror->figures().transfers, 1u);
}

TEST_F(RelayStreamTest, AMirrorThatTheStreamReachesNoMoreReadsEverythingOnce) {
  makeAll();
  change(1000);
  for (const char* length : {"1", "0"}) {
    expectRepair();
    lockMirrorOut();
    const auto before = mirror->figures().transfers;
    changeInTurns(100);
    awaitServer();
    EXPECT_NE(trim(length), "0");
    letMirrorIn();
    expectRepair();
    EXPECT_EQ(mirror->figures().transfers, before + 1) << length;
    handler.clear();
    change(1);
  }
  expectRepair();
}

TEST_F(RelayStreamTest, AHistoryThatIsShorterThanATransferIsReported) {
  makeTables();
  for (uint32_t key = 0; key < 40000; ++key) writer->put(key, {newValue(), 0});
  makePublisher();
  EXPECT_TRUE(turnUntil([&] { return server().ask({"HLEN", "zorbe:{t}:records"}) == "40000"; }));
  makeMirror();
  EXPECT_TRUE(turnUntil([&] { return mirror->progress().has_value(); }));
  const std::string before = server().ask({"HGET", "zorbe:{t}:about", "last"});
  writer->put(1, {newValue(), 0});
  writer->publish();
  EXPECT_TRUE(turnUntil([&] {
    return server().ask({"HGET", "zorbe:{t}:about", "last"}) != before;
  }));
  EXPECT_TRUE(mirror->progress());
  EXPECT_NE(trim("0"), "0");
  EXPECT_TRUE(turnUntil([&] { return logs("the publisher needs a larger --history"); }));
  expectRepair();
}

TEST_F(RelayStreamTest, RecordsThatChangeWhileTheyAreReadArriveInOrder) {
  constexpr uint32_t kKeys = 20000;
  makeTables();
  for (uint32_t key = 0; key < kKeys; ++key) writer->put(key, {newValue(), 0});
  makePublisher();
  awaitServer();
  for (int i = 0; i < 2; ++i) {
    makeMirror();
    int turns = 0;
    handler.clear();
    EXPECT_TRUE(turnUntil([&] {
      if (mirror->progress()) ++turns;
      change(50, kKeys);
      return logs("has every record, ");
    }));
    EXPECT_GT(turns, 10);
    expectRepair();
    EXPECT_EQ(mirror->figures().transfers, 1u);
    mirror.reset();
    change(2000, kKeys);
  }
}

TEST_F(RelayStreamTest, ATableOfAnotherDescriptionTakesTheFirstOnesPlace) {
  makeAllEqual();
  expectReplacement(Price{1});
}

TEST_F(RelayStreamTest, ATableThatHasGainedFieldsIsMirroredWithThem) {
  makeAllEqual();
  expectReplacement(LargerRecord{1, 2, 3});
}

TEST_F(RelayStreamTest, AnEntryOfSomebodyElseIsSkipped) {
  makeAllEqual();
  const std::string last = server().ask({"HGET", "zorbe:{t}:about", "last"});
  const std::string higher = std::to_string(std::stoull(last) + 60'000) + "-1";
  EXPECT_EQ(server().ask({"XADD", "zorbe:{t}:changes", higher, "a", "b"}), higher);
  EXPECT_TRUE(turnUntil([&] { return mirror->figures().unusable == 1; }));
  change(100);
  expectRepair();
  EXPECT_EQ(mirror->figures().transfers, 1u);
}

// A claim computes with the ids of the stream.
TEST_F(RelayStreamTest, AnEntryWithTheHighestIdStopsNoPublisher) {
  makeAllEqual();
  const std::string highest = "18446744073709551615-1";
  EXPECT_EQ(server().ask({"XADD", "zorbe:{t}:changes", highest, "a", "b"}), highest);
  change(100);
  expectRepair();
}

}  // namespace
}  // namespace Zorbe::Test
