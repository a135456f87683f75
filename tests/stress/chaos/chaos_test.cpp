// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stress/chaos/stress_run.h"
#include "support/sanitized.h"

namespace Zorbe::Test::Chaos {
namespace {

using testing::MatchesRegex;

class ChaosTest : public testing::Test {
 protected:
  static Report stressRun(unsigned kills, Flaw flaw = Flaw::kNone) {
    Settings settings;
    settings.kills = kills;
    settings.readers = 6;
    settings.flaw = flaw;
    if (flaw == Flaw::kLeaksDescriptors || flaw == Flaw::kWriterLeaks || flaw == Flaw::kStaysAway ||
        flaw == Flaw::kForgetsChanges)
      settings.timeout = std::chrono::seconds(10);  // they take all of it
    return runStress(settings);
  }

  static std::string failureWith(Flaw flaw) { return stressRun(1000, flaw).failure; }
};

TEST_F(ChaosTest, EveryPromiseHoldsWhileProcessesAreKilled) {
  const Report report = stressRun(20);
  EXPECT_EQ("", report.failure) << report.trace;
  EXPECT_GE(report.kills, 20u);
}

TEST_F(ChaosTest, AReaderThatLeaksDescriptorsIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::kLeaksDescriptors),
              MatchesRegex("reader 1 has [0-9]+ descriptors instead of [0-9]+"));
}

TEST_F(ChaosTest, AReaderThatLeaksMemoryIsNoticed) {
  if (kIsSanitized) GTEST_SKIP() << "sanitizers keep what was freed";
  EXPECT_THAT(failureWith(Flaw::kLeaksMemory),
              MatchesRegex("reader 1 has grown by [0-9]+ pages of memory"));
}

TEST_F(ChaosTest, AWriterThatLeaksDescriptorsIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::kWriterLeaks),
              MatchesRegex("candidate has [0-9]+ descriptors instead of [0-9]+"));
}

TEST_F(ChaosTest, AWriterThatForgetsARecordWhenItTakesOverIsNoticed) {
  EXPECT_EQ("candidate took over a table that has lost 1 changes",
            failureWith(Flaw::kForgetsRecords));
}

TEST_F(ChaosTest, ATornRecordIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::kTearsRecords),
              MatchesRegex("(reader [0-9]+ has received a torn record|key [0-9]+ is torn)"));
}

TEST_F(ChaosTest, AReaderThatForgetsChangesIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::kForgetsChanges),
              MatchesRegex("not converged: .*reader 1 is at .*, its copy differs"));
}

TEST_F(ChaosTest, AStressRunThatIsNotOverInTimeFails) {
  Settings settings;
  settings.kills = 1000000;
  settings.seconds = 1;
  settings.readers = kFewestReaders;
  EXPECT_THAT(runStress(settings).failure, MatchesRegex("only [0-9]+ of 1000000 kills in 1 s"));
}

TEST_F(ChaosTest, AReaderThatIgnoresADepartureIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::kStaysAway),
              MatchesRegex("not converged: (candidate|competitor) is at [0-9]+/[0-9]+; "
                           "reader 1 is at [0-9]+/[0-9]+, not attached, its copy differs"));
}

TEST_F(ChaosTest, AWriterThatDoesNotTakeTheLockIsNoticed) {
  EXPECT_THAT(
      failureWith(Flaw::kIgnoresTheLock),
      MatchesRegex("two writers: (candidate|competitor) has become one beside process [0-9]+"));
}

}  // namespace
}  // namespace Zorbe::Test::Chaos
