// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "chaos/storm.h"
#include "fakes/sanitized.h"

namespace Zorbe::Test::Chaos {
namespace {

using testing::HasSubstr;

class ChaosTest : public testing::Test {
 protected:
  static Report storm(unsigned kills, Flaw flaw = Flaw::none) {
    Settings settings;
    settings.kills = kills;
    settings.readers = 6;
    settings.flaw = flaw;
    if (flaw == Flaw::leaksDescriptors || flaw == Flaw::staysAway)
      settings.patience = std::chrono::seconds(10);  // they take all of it
    return conduct(settings);
  }

  static std::string failureWith(Flaw flaw) { return storm(1000, flaw).failure; }
};

TEST_F(ChaosTest, EveryPromiseHoldsWhileProcessesAreKilled) {
  const Report report = storm(20);
  EXPECT_EQ("", report.failure) << report.trace;
  EXPECT_GE(report.kills, 20u);
}

TEST_F(ChaosTest, AReaderThatLeaksDescriptorsIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::leaksDescriptors), HasSubstr("reader 1 has"));
}

TEST_F(ChaosTest, AReaderThatLeaksMemoryIsNoticed) {
  if (isSanitized) GTEST_SKIP() << "sanitizers keep what was freed";
  EXPECT_THAT(failureWith(Flaw::leaksMemory), HasSubstr("reader 1 has grown by"));
}

TEST_F(ChaosTest, AReaderThatIgnoresADepartureIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::staysAway), HasSubstr("not converged"));
}

TEST_F(ChaosTest, AReaderThatIsNotToldOfADepartureIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::hearsNothing), HasSubstr("reader 1 was not told of a departure"));
}

TEST_F(ChaosTest, AWriterThatDoesNotTakeTheLockIsNoticed) {
  EXPECT_THAT(failureWith(Flaw::ignoresTheLock), HasSubstr("two writers: competitor"));
}

}  // namespace
}  // namespace Zorbe::Test::Chaos
