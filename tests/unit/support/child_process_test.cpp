// SPDX-License-Identifier: MIT
#include "support/child_process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <iostream>

#include "support/parallel.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

ChildProcess shell(const std::string& script, const std::string& input = "/dev/null") {
  return ChildProcess({"/bin/sh", "-c", script}, input);
}

TEST(ChildProcessTest, RunsAFunctionInAChildOfTheTest) {
  const pid_t parent = getpid();
  EXPECT_EQ(resultInChild([parent] { return std::to_string(getppid() == parent); }), "1");
}

TEST(ChildProcessTest, AnOrdinaryUserIsNotRoot) {
  const auto isRoot = [] { return std::to_string(geteuid() == 0); };
  EXPECT_EQ(resultInChild(isRoot, User::kOrdinary), "0");
}

TEST(ChildProcessTest, SendsAndReceivesMessagesOneByOne) {
  ChildProcess child("echo", [](Channel& parent) {
    for (int i = 0; i < 3; ++i) parent.send("got " + parent.receive());
  });
  for (const char* message : {"one", "two", "three"}) child.send(message);
  EXPECT_EQ(child.receive(), "got one");
  EXPECT_EQ(child.awaitLine("got th"), "got three");
  EXPECT_EQ(child.finish(), 0);
}

TEST(ChildProcessTest, AFailedExpectationOrAnExceptionIsAnExitStatusAndIsLogged) {
  ChildProcess failing("failing", [](Channel&) { ADD_FAILURE() << "failed there"; });
  EXPECT_EQ(failing.finish(), 1);
  EXPECT_THAT(failing.log(), HasSubstr("failed there"));
  ChildProcess throwing("throwing", [](Channel&) { throw std::runtime_error("thrown there"); });
  EXPECT_EQ(throwing.finish(), 1);
  EXPECT_THAT(throwing.log(), HasSubstr("thrown there"));
}

TEST(ChildProcessTest, AResultOfAChildThatIsKilledFailsTheTest) {
  const auto raising = [] { return std::to_string(raise(SIGKILL)); };
  EXPECT_NONFATAL_FAILURE(resultInChild(raising), "-9");
}

TEST(ChildProcessTest, HasNoDescriptorOfTheTestButThoseThatAreKept) {
  const Descriptor kept(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const Descriptor other(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const auto look = [&](Channel& parent) {
    parent.send(std::to_string(fcntl(kept.get(), F_GETFD) != -1) +
                std::to_string(fcntl(other.get(), F_GETFD) != -1));
  };
  ChildProcess child("child", look, User::kSame, {kept.get()});
  EXPECT_EQ(child.receive(), "10");
  EXPECT_EQ(child.finish(), 0);
}

TEST(ChildProcessTest, StopsAndContinues) {
  ChildProcess child = shell("echo ready; read line; exit 3", "/dev/null");
  EXPECT_EQ(child.receive(), "ready");
  EXPECT_EQ(child.finish(), 3);
  ChildProcess stopped("stopped", [](Channel& parent) { parent.send(parent.receive()); });
  stopped.stop();
  stopped.send("late");
  EXPECT_FALSE(stopped.endsWithin(std::chrono::milliseconds(1)));
  stopped.signal(SIGCONT);
  EXPECT_EQ(stopped.receive(), "late");
  EXPECT_EQ(stopped.finish(), 0);
}

TEST(ChildProcessTest, AProgramWritesToTheChannelAndToTheLog) {
  ChildProcess program =
      shell("cat; printf 'no newline'; echo trouble >&2; kill -TERM $$", "/proc/self/cmdline");
  EXPECT_THAT(program.channel().receiveAll(), testing::EndsWith("no newline"));
  EXPECT_EQ(program.finish(), -SIGTERM);
  EXPECT_EQ(program.log(), "trouble\n");
}

TEST(ChildProcessTest, AProgramThatIsNotThereFails) {
  ChildProcess program({"/nonexistent/program"});
  EXPECT_EQ(program.finish(), 1);
  EXPECT_THAT(program.log(), HasSubstr("/nonexistent/program: No such file or directory"));
}

TEST(ChildProcessTest, AChildThatClosesItsEndEndsTheWaitForAMessage) {
  ChildProcess child("silent", [](Channel& parent) { parent.send("one"); });
  EXPECT_THROW(child.await("two"), std::runtime_error);
  EXPECT_EQ(child.finish(), 0);
}

TEST(InParallelTest, RunsEveryThread) {
  std::atomic<int> ran{0};
  inParallel(3, [&ran] { ++ran; });
  EXPECT_EQ(ran, 3);
}

}  // namespace
}  // namespace Zorbe::Test
