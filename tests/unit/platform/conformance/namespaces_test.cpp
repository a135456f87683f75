// SPDX-License-Identifier: MIT
//
// The functions of nsutil.h. Those that enter a namespace need root's rights. Threads enter them,
// so that the test's own thread stays where it is.
#include "conformance/fixture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nsutil/nsutil.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

namespace Zorbe::Conformance {
namespace {

constexpr const char* kFolder = "/run/netns";
constexpr const char* kOwn = "/proc/thread-self/ns/net";
constexpr const char* kUnknown = "zorbe-no-such-namespace";

using Identity = std::pair<dev_t, ino_t>;

Identity identityOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

void inThread(const std::function<void()>& body) {
  std::thread(body).join();
}

constexpr int kNotTried = 77;

// The exit code of a child that runs `body`.
int inChild(const std::function<int()>& body) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    const int code = body();
    std::fflush(stdout);
    ::_exit(code);
  }
  int status = 0;
  const bool hasEnded = ::waitpid(child, &status, 0) == child && WIFEXITED(status);
  return hasEnded ? WEXITSTATUS(status) : -1;
}

// Runs `body` in a process whose process 1 and whose /proc are not those of the machine, which may
// be closed even to root. Its exit code, kNotTried where there is no such process.
int withProcessOneOfOurs(const std::function<int()>& body) {
  const auto mountProc = [] {
    return ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("zorbe-conformance", "/proc", "proc", 0, nullptr) == 0;
  };
  const auto second = [&] { return mountProc() ? body() : kNotTried; };
  int code = kNotTried;
  inThread([&] {
    if (::unshare(CLONE_NEWPID) != 0) return;
    code = inChild([&second] { return inChild(second); });
  });
  return code;
}

size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

/// A network namespace with a name, as ip-netns(8) makes them.
class NamedNamespace : private Test::NonCopyable {
 public:
  NamedNamespace() {
    static_cast<void>(::mkdir(kFolder, 0755));  // stays, as that of ip-netns(8) does
    const int fd = ::open(path().c_str(), O_CREAT | O_EXCL | O_RDONLY | O_CLOEXEC, 0444);
    if (fd < 0) return;
    ::close(fd);
    inThread([this] {
      mounted_ = ::unshare(CLONE_NEWNET) == 0 &&
                 ::mount(kOwn, path().c_str(), "none", MS_BIND, nullptr) == 0;
    });
  }
  ~NamedNamespace() {
    if (mounted_) ::umount2(path().c_str(), MNT_DETACH);
    ::unlink(path().c_str());
  }

  bool isThere() const { return mounted_; }
  const std::string& name() const { return name_; }
  std::string path() const { return kFolder + ("/" + name_); }

 private:
  const std::string name_ = "zorbe-conformance-" + std::to_string(::getpid());
  bool mounted_ = false;
};

class NamespaceConformance : public ::testing::Test {};

class EnteredNamespaceConformance : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!named_.isThere()) GTEST_SKIP() << "only root can make network namespaces with a name";
  }

  NamedNamespace named_;
};

}  // namespace

TEST_F(NamespaceConformance, TheDefaultIsCalledDefault) {
  EXPECT_STREQ("default", DEFAULT_NS);
}

TEST_F(NamespaceConformance, AnUnknownNameIsRefusedWithTheReasonInErrno) {
  const Identity before = identityOf(kOwn);
  errno = 0;
  const int result = setnsByName(kUnknown, CLONE_NEWNET);
  const int error = errno;
  EXPECT_EQ(-1, result);
  EXPECT_NE(0, error);
  EXPECT_EQ(before, identityOf(kOwn));
}

TEST_F(NamespaceConformance, TheTraceNamesWhatWasRefusedAndTheReason) {
  ASSERT_EQ(-1, setnsByName(kUnknown, CLONE_NEWNET));
  const std::string reason = std::strerror(errno), trace = netnsGetTracebuffer();
  EXPECT_NE(std::string::npos, trace.find(kUnknown)) << trace;
  EXPECT_NE(std::string::npos, trace.find(reason)) << trace;
}

TEST_F(NamespaceConformance, TheTraceIsEmptyBeforeTheFirstFailure) {
  inThread([] { EXPECT_STREQ("", netnsGetTracebuffer()); });
}

TEST_F(NamespaceConformance, EachThreadHasATraceOfItsOwn) {
  ASSERT_EQ(-1, setnsByName(kUnknown, CLONE_NEWNET));
  inThread([] { EXPECT_EQ(-1, setnsByName("zorbe-another", CLONE_NEWNET)); });
  EXPECT_EQ(nullptr, std::strstr(netnsGetTracebuffer(), "zorbe-another"));
}

TEST_F(NamespaceConformance, ARefusalLeavesNoDescriptorOpen) {
  const size_t before = openDescriptors();
  EXPECT_EQ(-1, setnsByName(kUnknown, CLONE_NEWNET));
  EXPECT_EQ(before, openDescriptors());
}

TEST_F(EnteredNamespaceConformance, AThreadEntersANamespaceByItsNameAndReturns) {
  inThread([this] {
    const Identity before = identityOf(kOwn);
    const int way = ::open(kOwn, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(0, setnsByName(named_.name().c_str(), CLONE_NEWNET)) << netnsGetTracebuffer();
    EXPECT_EQ(identityOf(named_.path()), identityOf(kOwn));
    EXPECT_NE(before, identityOf(kOwn));
    EXPECT_EQ(0, ::setns(way, CLONE_NEWNET));
    EXPECT_EQ(before, identityOf(kOwn));
    ::close(way);
  });
}

TEST_F(EnteredNamespaceConformance, AnyTypeWillDoWhereNoneIsAskedFor) {
  inThread([this] {
    EXPECT_EQ(0, setnsByName(named_.name().c_str(), 0)) << netnsGetTracebuffer();
    EXPECT_EQ(identityOf(named_.path()), identityOf(kOwn));
  });
}

TEST_F(EnteredNamespaceConformance, ANamespaceOfAnotherTypeIsRefused) {
  inThread([this] {
    EXPECT_EQ(-1, setnsByName(named_.name().c_str(), CLONE_NEWUTS));
    EXPECT_NE(identityOf(named_.path()), identityOf(kOwn));
  });
}

TEST_F(EnteredNamespaceConformance, EnteringLeavesNoDescriptorOpen) {
  inThread([this] {
    const size_t before = openDescriptors();
    EXPECT_EQ(0, setnsByName(named_.name().c_str(), CLONE_NEWNET)) << netnsGetTracebuffer();
    EXPECT_EQ(before, openDescriptors());
  });
}

TEST_F(EnteredNamespaceConformance, DefaultIsTheNamespaceOfProcessOneUnlessAFileHasTheName) {
  const int code = withProcessOneOfOurs([this] {
    const Identity file = identityOf(kFolder + std::string("/default"));
    const Identity expected = file != Identity() ? file : identityOf("/proc/1/ns/net");
    EXPECT_EQ(0, setnsByName(named_.name().c_str(), CLONE_NEWNET)) << netnsGetTracebuffer();
    EXPECT_NE(expected, identityOf(kOwn));
    EXPECT_EQ(0, setnsByName("default", CLONE_NEWNET)) << netnsGetTracebuffer();
    EXPECT_EQ(expected, identityOf(kOwn));
    return HasFailure() ? 1 : 0;
  });
  if (code == kNotTried) GTEST_SKIP() << "this root may not make namespaces of processes";
  EXPECT_EQ(0, code);
}

}  // namespace Zorbe::Conformance
