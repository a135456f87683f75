// SPDX-License-Identifier: MIT
//
// A mirror on another host, and a link to it that is cut, slow and lossy.
#include "unit/relay/link.h"
#include "unit/relay/outage_fixture.h"

#include <poll.h>

namespace Zorbe::Test {
namespace {

class RelayLinkTest : public RelayOutageTest {
 protected:
  void SetUp() override {
    if (!link.problem().empty()) GTEST_SKIP() << link.problem();
    serverOptions = {"--port", "6379", "--bind", Link::kHere, "--protected-mode", "no"};
    serverLauncher = link.here({});
    RelayTest::makeTables();
    makePublisher();
    const std::string address = std::string("redis://") + Link::kHere;
    mirrorThere = startThere({ZORBE_RELAY, "mirror", "t", "--from", address});
    tail = startThere({ZORBE_BUILD "/tools/zorbe", "tail", "t", "--json", "--wait"});
  }

  std::unique_ptr<ChildProcess> startThere(Words words) {
    words.insert(words.end(), {"--root", inRoot("there")});
    return std::make_unique<ChildProcess>(link.there(words));
  }

  /// A reader on the other host has seen all changes so far, and those of each key in order_.
  void expectRepair() {
    const Content wanted = contentOf(*writer);
    EXPECT_TRUE(turnUntil([&] {
      readTail();
      return order_.content() == wanted;
    }));
    EXPECT_EQ(order_.fault(), "");
  }

  void readTail() {
    for (pollfd ready{tail->channel().fd(), POLLIN, 0}; ::poll(&ready, 1, 0) > 0;) {
      const Json change = Json::parse(tail->receive());
      if (change.contains("reset")) {
        order_.reset();
      } else if (change.contains("complete")) {
        order_.complete();
      } else if (change.contains("erased")) {
        order_.erase(change["key"]);
      } else {
        order_.put(change["key"], change["a"]);
      }
    }
  }

  /// The mirror has ended its connection for want of an answer.
  bool hasReconnected() const {
    return mirrorThere->log().find(": no answer") != std::string::npos;
  }

  /// The mirrored table's header, which needs no connection to its writer.
  bool becomes(Table::Origin origin) {
    return turnUntil([&] { return reader->info().origin == origin; });
  }

  Link link;
  std::unique_ptr<ChildProcess> mirrorThere;
  std::unique_ptr<ChildProcess> tail;

 private:
  OrderChecker order_;  // of what the tail prints
};

TEST_F(RelayLinkTest, ShortCutsLoseNoChange) {
  change(1000);
  expectRepair();
  for (int i = 0; i < 10; ++i) {
    changeInTurns(10);
    link.cut();
    changeInTurns(10);
    link.repair();
  }
  expectRepair();
  EXPECT_FALSE(hasReconnected());
}

TEST_F(RelayLinkTest, ASlowAndLossyLinkLosesNoChange) {
  if (!link.narrow()) GTEST_SKIP() << "this kernel has no token bucket filter";
  change(10'000, 10'000);
  changeInTurns(100);
  expectRepair();
  EXPECT_GT(link.dropped(), 0u);
  EXPECT_FALSE(hasReconnected());
  link.widen();
  change(100);
  expectRepair();
}

TEST_F(RelayLinkTest, ALongCutIsShownAndRepaired) {
  change(1000);
  expectRepair();
  EXPECT_TRUE(becomes(Table::Origin::mirrored));
  link.cut();
  changeInTurns(100);
  EXPECT_TRUE(becomes(Table::Origin::mirroredLost));
  EXPECT_TRUE(turnUntil([&] { return hasReconnected(); }));
  link.repair();
  expectRepair();
  EXPECT_TRUE(becomes(Table::Origin::mirrored));
}

}  // namespace
}  // namespace Zorbe::Test
