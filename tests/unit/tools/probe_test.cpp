// SPDX-License-Identifier: MIT
#include <csignal>

#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

class ZorbeProbe : public Command {
 protected:
  /// A writer that has published one row.
  ChildProcess startPublishedWriter(const std::string& table) {
    writeFile(inRoot("rows.csv"), "A,1.5,10\n");
    ChildProcess writer({std::string(ZORBE_EXAMPLE_PROGRAMS) + "/quotes-writer", table},
                        inRoot("rows.csv"));
    writer.awaitLine("fed ");
    return writer;
  }

  static void expectTimeout(const std::string& result) {
    const Outcome run = zorbe({"probe", "t", "--json", "--timeout", "0.2"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.json()["result"], result);
    EXPECT_GE(run.json()["seconds"], 0.2);
  }
};

TEST_F(ZorbeProbe, AWriterThatHasPublishedNothingAcknowledges) {
  ChildProcess writer = startWriter("t");
  const Outcome run = zorbe({"probe", "t", "--json", "--timeout", "30"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.json()["acknowledged"], true);
  EXPECT_LT(run.json()["seconds"], 30);
}

TEST_F(ZorbeProbe, AWriterThatIsFarAheadAcknowledges) {
  ChildProcess writer = startPublishedWriter("t");
  const Outcome run = zorbe({"probe", "t", "--timeout", "30"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_THAT(run.out, HasSubstr("t: acknowledged, after "));
}

TEST_F(ZorbeProbe, LeavesAWriterWithoutFailuresAndWithoutConnections) {
  ChildProcess writer = startPublishedWriter("t");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(zorbe({"probe", "t", "--timeout", "30"}).status, 0);
  listedOnce("t", [](const Json& table) { return table["connections"] == 0; });
  writer.signal(SIGTERM);
  EXPECT_EQ(writer.finish(), 0);
  EXPECT_EQ(writer.log(), "");
}

TEST_F(ZorbeProbe, NoWriterIsNo) {
  makeTable("t");
  const Outcome run = zorbe({"probe", "t"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("t: no writer, after "));
}

TEST_F(ZorbeProbe, ALockThatIsHeldWithoutListeningIsNotAMissingWriter) {
  const Descriptor held = lock("t");
  const Outcome run = zorbe({"probe", "t"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("t: the writer lock is held by a process that does not listen, "));
}

TEST_F(ZorbeProbe, ATableThatIsNotThereIsNoneAndIsNotMade) {
  const Outcome text = zorbe({"probe", "none"});
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(text.err, "zorbe: no table none at " + inRoot("none") + "\n");
  const Outcome json = zorbe({"probe", "none", "--json"});
  EXPECT_EQ(json.status, 1);
  EXPECT_EQ(json.json()["result"], "no such table");
  EXPECT_EQ(zorbe({"list", "--json"}).json()["tables"], Json::array());
}

TEST_F(ZorbeProbe, AStoppedWriterIsNoAfterTheTimeout) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  expectTimeout("connected, but not acknowledged in time");
}

TEST_F(ZorbeProbe, AStoppedWriterWithAFullQueueIsNoAfterTheTimeout) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  const auto connections = fillQueue("t");
  expectTimeout("not accepted in time: the writer's queue is full");
}

TEST_F(ZorbeProbe, AWriterThatContinuesAcknowledgesTheNextProbe) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  EXPECT_EQ(zorbe({"probe", "t", "--timeout", "0.01"}).status, 1);
  writer.signal(SIGCONT);
  EXPECT_EQ(zorbe({"probe", "t", "--timeout", "30"}).status, 0);
}

TEST_F(ZorbeProbe, AnOrdinaryUserMayAsk) {
  ChildProcess writer = startWriter("t");
  const Outcome run = zorbeAsOrdinaryUser({"probe", "t", "--timeout", "30"});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
}

TEST_F(ZorbeProbe, ANameTooLongForASocketIsAFailure) {
  const Outcome run = zorbe({"probe", std::string(92, 'n')});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("too large"));
}

}  // namespace
}  // namespace Zorbe::Test
