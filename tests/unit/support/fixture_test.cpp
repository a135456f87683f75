// SPDX-License-Identifier: MIT
#include "support/fixture.h"

#include "fault/fault.h"

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <sstream>

namespace Zorbe::Test {
namespace {

/// A test inside a test: `body` runs between its construction and its destruction.
class Probe : public ZorbeTest {
 public:
  static void run(const std::function<void(Probe&)>& body) {
    Probe probe;
    body(probe);
  }

  void log(int level) {
    if (!handler.isEnabled(level)) return;
    std::ostringstream text;
    text << "text";
    handler.emit(text, level);
  }

  static int leak() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

  using ZorbeTest::allowUnfiredFaults;
  using ZorbeTest::expectLeakedDescriptors;
  using ZorbeTest::handler;
  using ZorbeTest::inRoot;
  using ZorbeTest::rootPath;

 private:
  void TestBody() override {}
};

TEST(ZorbeTestTest, FailsATestThatLoggedAnUnannouncedFailure) {
  EXPECT_NONFATAL_FAILURE(Probe::run([](Probe& probe) { probe.log(0); }),
                          "unannounced messages of level 0: { \"text\" }");
}

TEST(ZorbeTestTest, FailsForAFailureThatWasTakenToo) {
  EXPECT_NONFATAL_FAILURE(Probe::run([](Probe& probe) {
                            probe.log(0);
                            probe.handler.take();
                          }),
                          "unannounced");
}

TEST(ZorbeTestTest, FailsATestThatAnnouncedAFailureInVain) {
  EXPECT_NONFATAL_FAILURE(Probe::run([](Probe& probe) {
                            probe.handler.expectFailures();
                            probe.log(1);
                          }),
                          "never came");
}

TEST(ZorbeTestTest, AcceptsAnnouncedFailures) {
  Probe::run([](Probe& probe) {
    probe.handler.expectFailures();
    probe.log(0);
  });
  Probe::run([](Probe& probe) {
    probe.handler.allowFailures();
    probe.log(0);
  });
  Probe::run([](Probe& probe) { probe.handler.allowFailures(); });
}

TEST(ZorbeTestTest, FailsATestThatLeftADescriptorOpenAndClosesIt) {
  int fd = -1;
  EXPECT_NONFATAL_FAILURE(Probe::run([&fd](Probe&) { fd = Probe::leak(); }), "-> /dev/null");
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(ZorbeTestTest, FailsATestThatClosedAForeignDescriptor) {
  const int fd = Probe::leak();
  ASSERT_GE(fd, 0);
  EXPECT_NONFATAL_FAILURE(Probe::run([fd](Probe&) { EXPECT_EQ(close(fd), 0); }),
                          "- " + std::to_string(fd) + " -> /dev/null");
}

TEST(ZorbeTestTest, ClosesTheDescriptorsThatAreLeftOpenOnPurpose) {
  int fd = -1;
  Probe::run([&fd](Probe& probe) {
    probe.expectLeakedDescriptors(1);
    fd = Probe::leak();
  });
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(ZorbeTestTest, FailsWhenFewerDescriptorsStayOpenThanExpected) {
  EXPECT_NONFATAL_FAILURE(Probe::run([](Probe& probe) { probe.expectLeakedDescriptors(1); }),
                          "1 expected to stay open");
}

TEST(ZorbeTestTest, FailsATestWhoseFaultNeverStruck) {
  EXPECT_NONFATAL_FAILURE(Probe::run([](Probe&) { Fault::arm("recv", 3, EIO); }),
                          "{ \"recv, occurrence 3\" }");
  Probe::run([](Probe& probe) {
    probe.allowUnfiredFaults();
    Fault::arm("recv", 1, EIO);
  });
}

TEST(ZorbeTestTest, DisarmsEveryFaultAtTheEnd) {
  Probe::run([](Probe& probe) {
    probe.allowUnfiredFaults();
    Fault::arm("rmdir", 1, EIO, Fault::kForever);
  });
  EXPECT_EQ(rmdir("/dev/null/none"), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(ZorbeTestTest, GivesEachTestARootOfItsOwnAndRemovesIt) {
  std::string path;
  Probe::run([&path](Probe& probe) {
    path = probe.rootPath();
    EXPECT_STREQ(std::getenv("SHMEM_ROOT"), path.c_str());
    EXPECT_EQ(mkdir(probe.inRoot("closed").c_str(), 0700), 0);
    EXPECT_EQ(mkdir(probe.inRoot("closed/inner").c_str(), 0), 0);
    EXPECT_EQ(chmod(probe.inRoot("closed").c_str(), 0), 0);
  });
  EXPECT_EQ(access(path.c_str(), F_OK), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(ZorbeTestTest, RestoresEnvironmentDirectoryAndUmask) {
  const mode_t mask = umask(077);
  ASSERT_EQ(setenv("NSPATH", "/kept", 1), 0);
  Probe::run([](Probe& probe) {
    EXPECT_EQ(std::getenv("NSPATH"), nullptr);
    EXPECT_EQ(chdir(probe.rootPath().c_str()), 0);
    EXPECT_EQ(umask(0), 022u);
    EXPECT_EQ(setenv("NSPATH", "/other", 1), 0);
  });
  EXPECT_STREQ(std::getenv("NSPATH"), "/kept");
  EXPECT_EQ(access(".", F_OK), 0);
  EXPECT_EQ(umask(mask), 077u);
  EXPECT_EQ(unsetenv("NSPATH"), 0);
}

}  // namespace
}  // namespace Zorbe::Test
