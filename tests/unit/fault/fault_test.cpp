// SPDX-License-Identifier: MIT
#include "fault/fault.h"

#include "support/fixture.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class FaultTest : public ZorbeTest {
 protected:
  FaultTest() {
    const Fault::Bypass bypass;
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
  }
  ~FaultTest() override {
    Fault::reset();
    EXPECT_EQ(close(pair[0]), 0);
    EXPECT_EQ(close(pair[1]), 0);
  }

  ssize_t sendText(const char* text) { return send(pair[0], text, std::strlen(text), 0); }
  std::string received(ssize_t* result = nullptr) {
    char text[16];
    const ssize_t got = recv(pair[1], text, sizeof text, MSG_DONTWAIT);
    if (result != nullptr) *result = got;
    return got < 0 ? std::string() : std::string(text, static_cast<size_t>(got));
  }
  static std::string pathBehind(int fd) {
    char text[PATH_MAX];
    const ssize_t length =
        readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), text, sizeof text);
    return length < 0 ? std::string() : std::string(text, static_cast<size_t>(length));
  }
  std::string makeFile(const std::string& name) {
    const Fault::Bypass bypass;
    std::ofstream(inRoot(name)) << "content";
    return inRoot(name);
  }

  int pair[2] = {-1, -1};
};

TEST_F(FaultTest, UnarmedCallsGoThroughAndAreCounted) {
  EXPECT_EQ(sendText("abc"), 3);
  EXPECT_EQ(received(), "abc");
  EXPECT_EQ(Fault::calls("send"), 1u);
  EXPECT_EQ(Fault::calls("recv"), 1u);
  EXPECT_EQ(Fault::calls("close"), 0u);
}

TEST_F(FaultTest, LeavesErrnoOfSuccessfulCallsAlone) {
  Fault::arm("send", 7, EIO);
  allowUnfiredFaults();
  errno = EXDEV;
  EXPECT_EQ(sendText("abc"), 3);
  EXPECT_EQ(errno, EXDEV);
}

TEST_F(FaultTest, FailsTheNthCallAndOnlyIt) {
  const auto armed = Fault::arm("send", 2, ECONNRESET);
  EXPECT_EQ(sendText("1"), 1);
  EXPECT_EQ(sendText("2"), -1);
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(sendText("3"), 1);
  EXPECT_EQ(armed.fired(), 1u);
  EXPECT_EQ(received(), "1");
  EXPECT_EQ(received(), "3");
  EXPECT_EQ(received(), "");
}

TEST_F(FaultTest, CountsEachArmedFaultByItself) {
  Fault::arm("send", 1, EPIPE);
  Fault::arm("send", 3, EIO);
  EXPECT_EQ(sendText("1"), -1);
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(sendText("2"), 1);
  EXPECT_EQ(sendText("3"), -1);
  EXPECT_EQ(errno, EIO);
}

TEST_F(FaultTest, ContinuesAsOftenAsAsked) {
  Fault::arm("send", 1, EAGAIN, 2);
  Fault::arm("recv", 1, EINTR, Fault::kForever);
  EXPECT_EQ(sendText("1"), -1);
  EXPECT_EQ(sendText("2"), -1);
  EXPECT_EQ(sendText("3"), 1);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(recv(pair[1], nullptr, 0, 0), -1);
  EXPECT_EQ(Fault::calls("recv"), 5u);
}

TEST_F(FaultTest, FailsOnlyTheDescriptorItIsBoundTo) {
  Fault::arm("send", 1, EIO).onFd(pair[1]);
  EXPECT_EQ(send(pair[0], "x", 1, 0), 1);
  EXPECT_EQ(send(pair[1], "x", 1, 0), -1);
}

TEST_F(FaultTest, FailsOnlyThePathItIsBoundTo) {
  const std::string one = makeFile("one");
  const std::string two = makeFile("two");
  Fault::arm("unlink", 1, EPERM).onPath(two);
  EXPECT_EQ(unlink(one.c_str()), 0);
  EXPECT_EQ(unlink(two.c_str()), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST_F(FaultTest, MatchesThePathOfADescriptor) {
  const std::string path = makeFile("file");
  Fault::arm("read", 1, EIO).onPath(path);
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  char byte;
  EXPECT_EQ(read(fd, &byte, 1), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(close(fd), 0);
}

TEST_F(FaultTest, AFailingCloseClosesNevertheless) {
  const int fd = dup(pair[0]);
  Fault::arm("close", 1, EIO);
  EXPECT_EQ(close(fd), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(FaultTest, AFailingClosedirClosesNevertheless) {
  DIR* const directory = opendir(rootPath().c_str());
  ASSERT_NE(directory, nullptr);
  const int fd = dirfd(directory);
  Fault::arm("closedir", 1, EIO);
  EXPECT_EQ(closedir(directory), -1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(FaultTest, AShortSendReallySendsThatMuch) {
  Fault::armResult("send", 1, 2);
  EXPECT_EQ(sendText("abc"), 2);
  EXPECT_EQ(received(), "ab");
}

TEST_F(FaultTest, AShortRecvReallyReceivesThatMuch) {
  EXPECT_EQ(sendText("abc"), 3);
  Fault::armResult("recv", 1, 1);
  EXPECT_EQ(received(), "a");
}

TEST_F(FaultTest, ARecvOfNothingLeavesTheMessageWhereItIs) {
  EXPECT_EQ(sendText("abc"), 3);
  Fault::armResult("recv", 1, 0);
  ssize_t result = -1;
  EXPECT_EQ(received(&result), "");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(received(), "abc");
}

TEST_F(FaultTest, ReturnsTheResultThatWasArmed) {
  Fault::armResult("setns", 1, 0);
  EXPECT_EQ(setns(-1, 0), 0);
}

TEST_F(FaultTest, PointersComeBackNull) {
  Fault::arm("opendir", 1, EMFILE);
  Fault::arm("getcwd", 1, ENOENT);
  EXPECT_EQ(opendir("/"), nullptr);
  EXPECT_EQ(errno, EMFILE);
  char text[PATH_MAX];
  EXPECT_EQ(getcwd(text, sizeof text), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(FaultTest, ErrorZeroLeavesErrnoAlone) {
  Fault::arm("strerror", 1, 0);
  errno = EXDEV;
  EXPECT_EQ(strerror(EIO), nullptr);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_STREQ(strerror(EIO), "Input/output error");
}

TEST_F(FaultTest, AltersWhatStatReports) {
  Fault::alterStat("stat", 1, [](struct stat& status) { status.st_blocks = blkcnt_t{1} << 40; });
  struct stat status {};
  EXPECT_EQ(stat("/", &status), 0);
  EXPECT_EQ(status.st_blocks, blkcnt_t{1} << 40);
}

TEST_F(FaultTest, RunsAnActionRightBeforeTheCall) {
  const std::string path = makeFile("file");
  Fault::before("unlink", 1, [&path] { EXPECT_EQ(unlink(path.c_str()), 0); });
  EXPECT_EQ(unlink(path.c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Fault::calls("unlink"), 1u);
}

TEST_F(FaultTest, MakesCallsOnAnotherPath) {
  const std::string path = makeFile("file");
  const auto opened = Fault::redirect("fopen", "/proc/net/unix", path);
  Fault::redirect("opendir", "/proc", rootPath());
  std::string word;
  EXPECT_TRUE(std::ifstream("/proc/net/unix") >> word);
  EXPECT_EQ(word, "content");
  EXPECT_TRUE(std::ifstream(path) >> word);
  EXPECT_EQ(opened.fired(), 1u);
  DIR* const directory = opendir("/proc");
  ASSERT_NE(directory, nullptr);
  EXPECT_EQ(pathBehind(dirfd(directory)), rootPath());
  EXPECT_EQ(closedir(directory), 0);
}

TEST_F(FaultTest, RedirectsUntilReset) {
  Fault::redirect("open", "/none", "/dev/null");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(close(open("/none", O_RDONLY | O_CLOEXEC)), 0);
  Fault::reset();
  EXPECT_EQ(open("/none", O_RDONLY | O_CLOEXEC), -1);
}

TEST_F(FaultTest, BypassedCallsAreNeitherCountedNorStruck) {
  Fault::arm("send", 1, EIO);
  {
    const Fault::Bypass bypass;
    EXPECT_EQ(sendText("a"), 1);
  }
  EXPECT_EQ(Fault::calls("send"), 0u);
  EXPECT_EQ(sendText("b"), -1);
}

TEST_F(FaultTest, KeepsAJournalOfCallsInOrder) {
  EXPECT_EQ(sendText("a"), 1);
  Fault::startJournal();
  EXPECT_EQ(received(), "a");
  EXPECT_EQ(sendText("b"), 1);
  EXPECT_THAT(Fault::journal(), ElementsAre("recv", "send"));
}

TEST_F(FaultTest, ResetForgetsEverything) {
  Fault::arm("send", 1, EIO);
  Fault::startJournal();
  EXPECT_EQ(received(), "");
  Fault::reset();
  EXPECT_EQ(sendText("a"), 1);
  EXPECT_EQ(Fault::calls("recv"), 0u);
  EXPECT_THAT(Fault::journal(), ElementsAre());
  EXPECT_THAT(Fault::unfired(), ElementsAre());
}

TEST_F(FaultTest, ReachesTheStreamsOfTheStandardLibrary) {
  const std::string path = makeFile("file");
  Fault::arm("fopen", 1, EACCES).onPath(path);
  EXPECT_FALSE(std::ifstream(path).is_open());
  Fault::arm("read", 1, EIO).onPath(path);
  std::ifstream stream(path);
  std::string word;
  EXPECT_FALSE(stream >> word);
}

TEST_F(FaultTest, CoversTheLargeFileNames) {
  Fault::arm("open", 1, EMFILE);
  EXPECT_EQ(open64("/", O_RDONLY | O_CLOEXEC), -1);
  Fault::arm("stat", 1, EIO);
  struct stat64 status {};
  EXPECT_EQ(stat64("/", &status), -1);
}

TEST_F(FaultTest, PassesTheModeOfANewFileOn) {
  const int fd = open(inRoot("new").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0640);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(close(fd), 0);
  struct stat status {};
  EXPECT_EQ(stat(inRoot("new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0640u);
}

TEST_F(FaultTest, BindsEpollFaultsToTheDescriptorThatIsAdded) {
  const int fd = epoll_create1(EPOLL_CLOEXEC);
  Fault::arm("epoll_ctl", 1, ENOSPC).onFd(pair[1]);
  epoll_event event{};
  EXPECT_EQ(epoll_ctl(fd, EPOLL_CTL_ADD, pair[0], &event), 0);
  EXPECT_EQ(epoll_ctl(fd, EPOLL_CTL_ADD, pair[1], &event), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(close(fd), 0);
}

TEST_F(FaultTest, RefusesNamesItDoesNotIntercept) {
  EXPECT_THROW(Fault::arm("receive", 1, EIO), std::invalid_argument);
  EXPECT_THROW(Fault::calls("receive"), std::invalid_argument);
}

}  // namespace
}  // namespace Zorbe::Test
