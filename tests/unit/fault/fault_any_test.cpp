// SPDX-License-Identifier: MIT
#include "fault/fault.h"

#include "support/fixture.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class FaultAnyTest : public ZorbeTest {
 protected:
  static int look(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status);
  }
  std::optional<Fault::Failure> failWith(int error, const Fault::InterceptedCall& victim) {
    victims.push_back(victim.call + " " + victim.target);
    return Fault::Failure{error};
  }

  std::vector<std::string> victims;
};

TEST_F(FaultAnyTest, FailsTheNthCallOfAnyName) {
  Fault::armAny(2,
                [this](const Fault::InterceptedCall& victim) { return failWith(EPERM, victim); });
  EXPECT_EQ(look("/"), 0);
  EXPECT_EQ(rmdir("/none"), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(rmdir("/none"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(victims, ElementsAre("rmdir /none"));
}

TEST_F(FaultAnyTest, ContinuesWithCallsOfThatName) {
  const auto choose = [this](const Fault::InterceptedCall& victim) {
    return failWith(EIO, victim);
  };
  const auto armed = Fault::armAny(1, choose, Fault::kForever);
  EXPECT_EQ(look("/"), -1);
  EXPECT_EQ(look("/"), -1);
  EXPECT_EQ(unlink("/none"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(armed.fired(), 2u);
  EXPECT_THAT(victims, ElementsAre("stat /"));
}

TEST_F(FaultAnyTest, SparesACallThatNothingIsChosenFor) {
  const auto armed = Fault::armAny(1, [](const Fault::InterceptedCall&) { return std::nullopt; });
  EXPECT_EQ(look("/"), 0);
  EXPECT_EQ(look("/"), 0);
  EXPECT_EQ(armed.fired(), 0u);
  allowUnfiredFaults();
}

TEST_F(FaultAnyTest, ReturnsTheChosenResult) {
  Fault::armAny(1, [](const Fault::InterceptedCall&) { return Fault::Failure{0, 7}; });
  EXPECT_EQ(look("/none"), 7);
}

TEST_F(FaultAnyTest, ComesBeforeWhatIsArmedLater) {
  Fault::armAny(1, [](const Fault::InterceptedCall&) { return Fault::Failure{EMFILE}; });
  Fault::redirect("opendir", "/none", "/");
  EXPECT_EQ(opendir("/none"), nullptr);
  EXPECT_EQ(errno, EMFILE);
  allowUnfiredFaults();
}

}  // namespace
}  // namespace Zorbe::Test
