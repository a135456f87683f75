// SPDX-License-Identifier: MIT
#include "support/child_process.h"
#include "unit/platform/nsutil/namespace_fixture.h"

#include <fcntl.h>
#include <sys/mount.h>

#include <climits>
#include <cstring>

namespace Zorbe::Test {
namespace {

class NsutilTest : public NamespaceTest {
 protected:
  /// Mounts of the calling thread's own: false where it cannot have any.
  static bool leaveMounts() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0;
  }

  /// Puts an empty /run/netns in place that only the calling thread sees.
  static void hideNamespaces() {
    ASSERT_TRUE(leaveMounts()) << std::strerror(errno);
    ASSERT_EQ(mount("zorbe-test", "/run/netns", "tmpfs", 0, nullptr), 0);
  }

  /// Runs `body` in a child whose parent is process 1 of a namespace of their own. A failed
  /// expectation of `body` fails the test.
  static void inPidNamespace(const std::function<void()>& body) {
    const auto second = [&body] {
      body();
      return std::string("done");
    };
    inThread([&second] {
      EXPECT_EQ(unshare(CLONE_NEWPID), 0);
      EXPECT_EQ(resultInChild([&second] { return resultInChild(second); }), "done");
    });
  }

  static void bindNamespace(const char* from, const char* to) {
    const int fd = open(to, O_CREAT | O_RDONLY | O_CLOEXEC, 0444);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(close(fd), 0);
    ASSERT_EQ(mount(from, to, "none", MS_BIND, nullptr), 0);
  }
};

class NsutilRootTest : public NsutilTest {
 protected:
  void SetUp() override {
    if (!isRoot()) GTEST_SKIP() << "only root can make network namespaces and enter them";
    if (resultInChild([] { return std::to_string(unshare(CLONE_NEWNET)); }) != "0") {
      GTEST_SKIP() << "this root may not make network namespaces";
    }
  }
};

/// What is in /run/netns is another thing for these tests than for the machine.
class NsutilMountTest : public NsutilRootTest {
 protected:
  void SetUp() override {
    NsutilRootTest::SetUp();
    if (IsSkipped()) return;
    const int error =
        std::stoi(resultInChild([] { return std::to_string(leaveMounts() ? 0 : errno); }));
    if (error != 0) {
      GTEST_SKIP() << "the mounts here cannot be kept apart, as in a chroot whose / is no mount "
                   << "point: " << std::strerror(error);
    }
  }
};

TEST_F(NsutilTest, TheDefaultNamespaceIsCalledDefault) {
  EXPECT_STREQ(DEFAULT_NS, "default");
}

TEST_F(NsutilTest, TheTraceIsEmptyBeforeTheFirstFailure) {
  inThread([] { EXPECT_STREQ(netnsGetTracebuffer(), ""); });
}

TEST_F(NsutilTest, NamesThatAreNoneAreRefused) {
  expectRefused(nullptr, EINVAL, "setnsByName() (null): Invalid argument");
  expectRefused("", EINVAL, "setnsByName() (empty): Invalid argument");
  expectRefused(".", EINVAL, "setnsByName() .: Invalid argument");
  expectRefused("..", EINVAL, "setnsByName() ..: Invalid argument");
}

TEST_F(NsutilTest, PathsAreNoNames) {
  expectRefused("/proc/1/ns/net", EINVAL, "setnsByName() /proc/1/ns/net: Invalid argument");
  expectRefused("../../proc/1/ns/net", EINVAL,
                "setnsByName() ../../proc/1/ns/net: Invalid argument");
  expectRefused("default/", EINVAL, "setnsByName() default/: Invalid argument");
}

TEST_F(NsutilTest, ANameThatNoFileCanHaveIsTooLong) {
  const Attempt attempt = enterInThread(std::string(NAME_MAX + 1, 'x').c_str());
  EXPECT_EQ(attempt.result, -1);
  EXPECT_EQ(attempt.error, ENAMETOOLONG);
  EXPECT_EQ(attempt.trace,
            "setnsByName() " + std::string(NAME_MAX + 1, 'x') + ": File name too long");
}

TEST_F(NsutilTest, TheLongestNameIsLookedUp) {
  const std::string name(NAME_MAX, 'x');
  expectRefused(name.c_str(), ENOENT, "open() /run/netns/" + name + ": No such file or directory");
}

TEST_F(NsutilTest, AMissingNamespaceIsNamedWithItsFile) {
  expectRefused("zorbe-none", ENOENT, "open() /run/netns/zorbe-none: No such file or directory");
}

TEST_F(NsutilTest, AnEndlessNameDoesNotOverflowTheTrace) {
  const Attempt attempt = enterInThread(std::string(100000, 'x').c_str());
  EXPECT_EQ(attempt.error, ENAMETOOLONG);
  EXPECT_EQ(attempt.trace.find("setnsByName() xxx"), 0u);
  EXPECT_LT(attempt.trace.size(), 1000u);
}

TEST_F(NsutilTest, EachThreadHasATraceOfItsOwn) {
  EXPECT_EQ(setnsByName("zorbe-mine", CLONE_NEWNET), -1);
  const std::string mine = netnsGetTracebuffer();
  expectRefused("zorbe-other", ENOENT, "open() /run/netns/zorbe-other: No such file or directory");
  EXPECT_EQ(netnsGetTracebuffer(), mine);
}

TEST_F(NsutilRootTest, MovesTheCallingThreadAndNoOther) {
  const std::string name = makeNamespace();
  const Id mine = namespaceOfThread();
  const Attempt attempt = enterInThread(name.c_str());
  EXPECT_EQ(attempt.result, 0);
  EXPECT_EQ(attempt.after, idOf("/run/netns/" + name));
  EXPECT_NE(attempt.after, attempt.before);
  EXPECT_EQ(namespaceOfThread(), mine);
}

TEST_F(NsutilRootTest, AnyTypeWillDoWhenNoneIsAskedFor) {
  const std::string name = makeNamespace();
  EXPECT_EQ(enterInThread(name.c_str(), 0).result, 0);
}

TEST_F(NsutilRootTest, ANamespaceOfAnotherTypeIsRefused) {
  const std::string name = makeNamespace();
  const Attempt attempt = enterInThread(name.c_str(), CLONE_NEWUTS);
  EXPECT_EQ(attempt.result, -1);
  EXPECT_EQ(attempt.error, EINVAL);
  EXPECT_EQ(attempt.trace, "setns() /run/netns/" + name + ": Invalid argument");
  EXPECT_EQ(attempt.after, attempt.before);
}

TEST_F(NsutilRootTest, ASuccessKeepsTheTraceOfTheLastFailure) {
  const std::string name = makeNamespace();
  inThread([&name] {
    EXPECT_EQ(setnsByName("zorbe-none", CLONE_NEWNET), -1);
    EXPECT_EQ(setnsByName(name.c_str(), CLONE_NEWNET), 0);
    EXPECT_STREQ(netnsGetTracebuffer(), "open() /run/netns/zorbe-none: No such file or directory");
  });
}

// Process 1 of the machine may be closed even to root: the test makes one of its own.
TEST_F(NsutilMountTest, DefaultIsTheNamespaceOfProcessOne) {
  const std::string name = makeNamespace();
  inPidNamespace([&name] {
    ASSERT_EQ(setnsByName(name.c_str(), CLONE_NEWNET), 0);
    ASSERT_NO_FATAL_FAILURE(hideNamespaces());
    ASSERT_EQ(mount("zorbe-test", "/proc", "proc", 0, nullptr), 0);
    const Attempt attempt = enter("default", CLONE_NEWNET);
    EXPECT_EQ(attempt.result, 0) << attempt.trace;
    EXPECT_NE(attempt.before, attempt.after);
    EXPECT_EQ(attempt.after, idOf("/proc/1/ns/net"));
  });
}

TEST_F(NsutilMountTest, AFileOfThatNameTakesPrecedence) {
  const std::string name = makeNamespace();
  const std::string file = "/run/netns/" + name;
  inThread([&file] {
    const Id other = idOf(file);
    ASSERT_EQ(setnsByName(file.c_str() + sizeof "/run/netns", CLONE_NEWNET), 0);
    ASSERT_NO_FATAL_FAILURE(hideNamespaces());
    ASSERT_NO_FATAL_FAILURE(bindNamespace("/proc/thread-self/ns/net", "/run/netns/default"));
    EXPECT_EQ(setnsByName("default", CLONE_NEWNET), 0) << netnsGetTracebuffer();
    EXPECT_EQ(namespaceOfThread(), other);
  });
}

TEST_F(NsutilMountTest, AFileThatIsNoNamespaceIsRefused) {
  makeNamespace();
  inThread([] {
    ASSERT_NO_FATAL_FAILURE(hideNamespaces());
    const int fd = open("/run/netns/default", O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(close(fd), 0);
    const Attempt attempt = enter("default", CLONE_NEWNET);
    EXPECT_EQ(attempt.result, -1);
    EXPECT_EQ(attempt.trace, "setns() /run/netns/default: Invalid argument");
    EXPECT_EQ(attempt.after, attempt.before);
  });
}

}  // namespace
}  // namespace Zorbe::Test
