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
};

TEST_F(ChaosTest, EveryPromiseHoldsWhileProcessesAreKilled) {
  const Report report = stressRun(20);
  EXPECT_EQ("", report.failure) << report.trace;
  EXPECT_GE(report.kills, 20u);
}

TEST_F(ChaosTest, AStressRunThatIsNotOverInTimeFails) {
  Settings settings;
  settings.kills = 1000000;
  settings.seconds = 1;
  settings.readers = kFewestReaders;
  EXPECT_THAT(runStress(settings).failure, MatchesRegex("only [0-9]+ of 1000000 kills in 1 s"));
}

struct FlawCase {
  const char* name;
  Flaw flaw;
  const char* failure;  // a regular expression
};

void PrintTo(const FlawCase& flawCase, std::ostream* out) {
  *out << flawCase.name;
}

class ChaosFlawTest : public ChaosTest, public testing::WithParamInterface<FlawCase> {};

TEST_P(ChaosFlawTest, IsNoticed) {
  if (GetParam().flaw == Flaw::kLeaksMemory && kIsSanitized) {
    GTEST_SKIP() << "sanitizers keep what was freed";
  }
  EXPECT_THAT(stressRun(1000, GetParam().flaw).failure, MatchesRegex(GetParam().failure));
}

const FlawCase kFlaws[] = {
    {"AReaderLeaksDescriptors", Flaw::kLeaksDescriptors,
     "reader 1 has [0-9]+ descriptors instead of [0-9]+"},
    {"AReaderLeaksMemory", Flaw::kLeaksMemory, "reader 1 has grown by [0-9]+ pages of memory"},
    {"AReaderForgetsChanges", Flaw::kForgetsChanges,
     "not converged: .*reader 1 is at .*, its copy differs"},
    {"AReaderIgnoresADeparture", Flaw::kStaysAway,
     "not converged: (candidate|competitor) is at [0-9]+/[0-9]+; "
     "reader 1 is at [0-9]+/[0-9]+, not attached, its copy differs"},
    {"AWriterLeaksDescriptors", Flaw::kWriterLeaks,
     "candidate has [0-9]+ descriptors instead of [0-9]+"},
    {"AWriterForgetsARecordWhenItTakesOver", Flaw::kForgetsRecords,
     "candidate took over a table that has lost 1 changes"},
    {"AWriterTearsARecord", Flaw::kTearsRecords,
     "(reader [0-9]+ has received a torn record|key [0-9]+ is torn)"},
    {"AWriterDoesNotTakeTheLock", Flaw::kIgnoresTheLock,
     "two writers: (candidate|competitor) has become one beside process [0-9]+"},
};

INSTANTIATE_TEST_SUITE_P(Flaws, ChaosFlawTest, testing::ValuesIn(kFlaws),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace Zorbe::Test::Chaos
