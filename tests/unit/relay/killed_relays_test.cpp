// SPDX-License-Identifier: MIT
//
// zorbe-relay as processes, which are killed.
#include "support/outcome.h"
#include "unit/relay/outage_fixture.h"

namespace Zorbe::Test {
namespace {

using ::testing::HasSubstr;

class RelayProcessTest : public RelayOutageTest {
 protected:
  Words publishWords() {
    return {ZORBE_RELAY, "publish", "t", "--to", server().address(), "--root", inRoot("here")};
  }

  Words mirrorWords() {
    return {ZORBE_RELAY, "mirror", "t", "--from", server().address(), "--root", inRoot("there")};
  }
};

class KilledRelaysTest : public RelayProcessTest, public testing::WithParamInterface<uint64_t> {};

TEST_P(KilledRelaysTest, LoseNoChangeAndNoOrder) {
  random = Random(GetParam());
  handler.allowFailures();  // a reader that reports to a writer that was killed
  makeTables();
  auto publishing = std::make_unique<ChildProcess>(publishWords());
  auto mirroring = std::make_unique<ChildProcess>(mirrorWords());
  change(1000);
  expectRepair();
  for (int i = 0; i < 60; ++i) {
    changeInTurns(1 + random.below(40));
    if (random.percent(40)) {
      publishing->kill();
      publishing = std::make_unique<ChildProcess>(publishWords());
    }
    if (random.percent(40)) {
      mirroring->kill();
      mirroring = std::make_unique<ChildProcess>(mirrorWords());
    }
  }
  expectRepair();
}

INSTANTIATE_TEST_SUITE_P(Seeds, KilledRelaysTest, testing::Values(1, 2));

TEST_F(RelayProcessTest, APublisherThatContinuesAfterAnotherHasTakenOverEnds) {
  makeTables();
  makeMirror();
  ChildProcess older(publishWords());
  change(100);
  expectRepair();
  older.stop();
  const ChildProcess newer(publishWords());
  change(100);
  expectRepair();
  older.signal(SIGCONT);
  EXPECT_EQ(older.finish(), 1);
  EXPECT_THAT(older.log(), HasSubstr("another publisher of this table has taken over"));
  change(100);
  expectRepair();
}

TEST_F(RelayProcessTest, ASecondMirrorOfOneTableOfThisHostIsRefused) {
  makeAllEqual();
  const Outcome second = runProgram(mirrorWords());
  EXPECT_EQ(second.status, 2);
  EXPECT_THAT(second.err, HasSubstr("of this host has a writer already, "));
  EXPECT_THAT(second.err, HasSubstr("end it, or mirror under another name (--as)"));
  change(100);
  expectRepair();
}

}  // namespace
}  // namespace Zorbe::Test
