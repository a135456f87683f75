// SPDX-License-Identifier: MIT
//
// What the server loses, refuses or delays.
#include "unit/relay/outage_fixture.h"

namespace Zorbe::Test {
namespace {

class RelayServerTest : public RelayOutageTest {
 protected:
  /// The snapshot lacks changes that all have.
  void saveAndChange() {
    EXPECT_EQ(server().ask({"SAVE"}), "OK");
    change(1000);
    expectRepair();
  }
};

TEST_F(RelayServerTest, AServerThatIsSetBackToASnapshotGetsTheRest) {
  makeAllEqual();
  saveAndChange();
  server().kill();
  change(100);
  server().start();
  expectRepair();
  change(100);
  expectRepair();
}

TEST_F(RelayServerTest, AMirrorTakesNothingOldFromASnapshotWithoutAPublisher) {
  makeAllEqual();
  saveAndChange();
  const Content last = contentOf(*reader);
  server().kill();
  publisher.reset();
  server().start();
  EXPECT_TRUE(turnUntil([&] { return logs("the server has older records"); }));
  EXPECT_EQ(contentOf(*reader), last);
  change(100);
  makePublisher();
  expectRepair();
}

TEST_F(RelayServerTest, AServerThatStopsForAMomentGetsTheRest) {
  makeAllEqual();
  server().stop();
  changeInTurns(100);
  change(50'000);  // more than the publisher can follow: it misses erasures
  server().resume();
  changeInTurns(10);
  expectRepair();
  EXPECT_EQ(publisher->figures().comparisons, 2u);
  EXPECT_EQ(mirror->figures().transfers, 1u);
  EXPECT_EQ(countLogged("connected with"), 2u);
}

TEST_F(RelayServerTest, AServerThatHangsIsLeftAndGetsTheRestLater) {
  makeAllEqual();
  server().stop();
  changeInTurns(100);
  EXPECT_TRUE(turnUntil([&] { return countLogged(": no answer") == 2; }));
  change(100);
  server().resume();
  expectRepair();
}

TEST_F(RelayServerTest, ASlowServerGetsEverything) {
  makeAll();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(server().ask({"CLIENT", "PAUSE", "30"}), "OK");
    changeInTurns(20);
  }
  expectRepair();
  EXPECT_EQ(mirror->figures().transfers, 1u);
  EXPECT_EQ(countLogged("connected with"), 2u);
}

TEST_F(RelayServerTest, AServerThatHasNoRoomForAClaimGetsItLater) {
  makeAllEqual();
  publisher.reset();
  EXPECT_EQ(server().ask({"CONFIG", "SET", "maxmemory", "1"}), "OK");
  const std::string epoch = server().ask({"HGET", "zorbe:{t}:about", "epoch"});
  makePublisher();
  EXPECT_TRUE(turnUntil([&] { return logs("OOM command not allowed"); }));
  EXPECT_EQ(server().ask({"HGET", "zorbe:{t}:about", "epoch"}), epoch);
  EXPECT_EQ(server().ask({"CONFIG", "SET", "maxmemory", "100mb"}), "OK");
  change(100);
  expectRepair();
}

TEST_F(RelayServerTest, AWrongPasswordIsTriedUntilItIsRight) {
  EXPECT_EQ(server().ask({"ACL", "SETUSER", "relay", "on", ">other", "~*", "+@all"}), "OK");
  auto publishOptions = publishing();
  auto mirrorOptions = mirroring();
  publishOptions.server.credentials = mirrorOptions.server.credentials = {"relay", "secret"};
  makeTables();
  publisher = std::make_unique<Relay::Publisher>(publishOptions, handler);
  mirror = std::make_unique<Relay::Mirror>(mirrorOptions, handler);
  change(100);
  EXPECT_TRUE(turnUntil([&] { return countLogged("WRONGPASS") == 2; }));
  EXPECT_EQ(server().ask({"DBSIZE"}), "0");
  EXPECT_EQ(server().ask({"ACL", "SETUSER", "relay", ">secret"}), "OK");
  expectRepair();
}

// The server takes the user, and refuses what the publisher asks for.
TEST_F(RelayOutageTest, SessionsThatEndAtOnceAreTriedWithPausesAndLoggedOnce) {
  EXPECT_EQ(server().ask({"ACL", "SETUSER", "reader", "on", ">secret", "~*", "+info", "+select"}),
            "OK");
  makeTables();
  auto options = publishing();
  options.server.credentials = {"reader", "secret"};
  publisher = std::make_unique<Relay::Publisher>(options, handler);
  const auto sessions = [&] {
    const std::string stats = server().ask({"INFO", "commandstats"});
    const std::string name = "cmdstat_select:calls=";
    const size_t at = stats.find(name);
    return at == std::string::npos ? 0 : std::stoi(stats.substr(at + name.size()));
  };
  const auto began = std::chrono::steady_clock::now();
  EXPECT_TRUE(turnUntil([&] { return sessions() >= 5; }));
  // 0.1, 0.2, 0.4 and 0.8 seconds, or half of each.
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(750));
  EXPECT_EQ(countLogged("NOPERM"), 1u);
}

}  // namespace
}  // namespace Zorbe::Test
