// SPDX-License-Identifier: MIT
#include <csignal>

#include "unit/tools/command_fixture.h"

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using Zorbe::Test::ChildProcess;
using Zorbe::Test::Outcome;

class ZorbeProbe : public Zorbe::Test::Command {
 protected:
  /// A writer that has published one row.
  ChildProcess startPublishedWriter(const std::string& table) {
    writeFile(inRoot("rows.csv"), "A,1.5,10\n");
    ChildProcess writer({std::string(ZORBE_EXAMPLE_PROGRAMS) + "/quotes-writer", table},
                        inRoot("rows.csv"));
    writer.awaitLine("fed ");
    return writer;
  }
};

TEST_F(ZorbeProbe, aWriterThatHasPublishedNothingAcknowledges) {
  ChildProcess writer = startWriter("t");
  const Outcome run = zorbe({"probe", "t", "--json", "--timeout", "30"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.json()["acknowledged"], true);
  EXPECT_LT(run.json()["seconds"], 30);
}

TEST_F(ZorbeProbe, aWriterThatIsFarAheadAcknowledges) {
  ChildProcess writer = startPublishedWriter("t");
  const Outcome run = zorbe({"probe", "t", "--timeout", "30"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_THAT(run.out, HasSubstr("t: acknowledged, after "));
}

TEST_F(ZorbeProbe, leavesAWriterWithoutFailuresAndWithoutConnections) {
  ChildProcess writer = startPublishedWriter("t");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(zorbe({"probe", "t", "--timeout", "30"}).status, 0);
  listedOnce("t", [](const Json& table) { return table["connections"] == 0; });
  writer.signal(SIGTERM);
  EXPECT_EQ(writer.finish(), 0);
  EXPECT_EQ(writer.log(), "");
}

TEST_F(ZorbeProbe, noWriterIsNo) {
  makeTable("t");
  const Outcome run = zorbe({"probe", "t"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("t: no writer, after "));
}

TEST_F(ZorbeProbe, aProbeMakesNoDirectory) {
  EXPECT_EQ(zorbe({"probe", "none"}).status, 1);
  EXPECT_EQ(zorbe({"list", "--json"}).json()["tables"], Json::array());
}

TEST_F(ZorbeProbe, aStoppedWriterIsNoAfterTheTimeout) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  const Outcome run = zorbe({"probe", "t", "--json", "--timeout", "0.2"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.json()["result"], "connected, but not acknowledged in time");
  EXPECT_GE(run.json()["seconds"], 0.2);
}

TEST_F(ZorbeProbe, aStoppedWriterWithAFullQueueIsNoAfterTheTimeout) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  const auto connections = fillQueue("t");
  const Outcome run = zorbe({"probe", "t", "--json", "--timeout", "0.2"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.json()["result"], "not accepted in time: the writer's queue is full");
  EXPECT_GE(run.json()["seconds"], 0.2);
}

TEST_F(ZorbeProbe, aWriterThatGoesOnAcknowledgesTheNextProbe) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  EXPECT_EQ(zorbe({"probe", "t", "--timeout", "0.01"}).status, 1);
  writer.signal(SIGCONT);
  EXPECT_EQ(zorbe({"probe", "t", "--timeout", "30"}).status, 0);
}

TEST_F(ZorbeProbe, anOrdinaryUserMayAsk) {
  ChildProcess writer = startWriter("t");
  const Outcome run = zorbeAsOrdinaryUser({"probe", "t", "--timeout", "30"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
}

TEST_F(ZorbeProbe, aNameTooLongForASocketIsAFailure) {
  const Outcome run = zorbe({"probe", std::string(92, 'n')});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("too large"));
}

}  // namespace
