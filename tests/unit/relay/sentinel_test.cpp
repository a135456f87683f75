// SPDX-License-Identifier: MIT
//
// A server that another one replaces, which does not have the last changes.
#include "unit/relay/outage_fixture.h"
#include "unit/relay/replicated_server.h"

namespace Zorbe::Test {
namespace {

class RelaySentinelTest : public RelayOutageTest {
 protected:
  template <class Options>
  Options over(Options options, const std::string& address) {
    options.server.address = Relay::parseAddress(address);
    return options;
  }
};

TEST_F(RelaySentinelTest, AReplicaThatLacksTheLastChangesGetsThem) {
  ReplicatedServer servers(inRoot("server"));
  makeTables();
  publisher = std::make_unique<Relay::Publisher>(over(publishing(), servers.address()), handler);
  mirror = std::make_unique<Relay::Mirror>(over(mirroring(), servers.address()), handler);
  change(1000);
  expectRepair();
  servers.cutReplicaOff();
  change(1000);
  expectRepair();
  servers.killMaster();
  change(100);
  expectRepair();
  EXPECT_EQ(countLogged("connected with " + servers.replicasPlace()), 2u);
  change(100);
  expectRepair();
}

TEST_F(RelaySentinelTest, AMasterThatNoSentinelKnowsIsReported) {
  const ReplicatedServer servers(inRoot("server"));
  mirror = std::make_unique<Relay::Mirror>(over(mirroring(), servers.address("other")), handler);
  EXPECT_TRUE(turnUntil([&] { return logs("the sentinel knows no master 'other'"); }));
}

}  // namespace
}  // namespace Zorbe::Test
