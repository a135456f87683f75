// SPDX-License-Identifier: MIT
//
// What the kernel is asked for, seen without the rights to enter a namespace.
#include <vector>

#include "fault/fault.h"
#include "support/descriptor_zero.h"
#include "unit/platform/nsutil/namespace_fixture.h"

namespace Zorbe::Test {
namespace {

class NsutilCallsTest : public NamespaceTest {
 protected:
  struct Move {
    int type;
    int descriptorFlags;
    int statusFlags;
    Id target;
  };

  NsutilCallsTest() {
    moves_.clear();
    Fault::divert("setns", noteMove);
  }

  static int noteMove(int fd, int type) {
    const Fault::Bypass bypass;
    struct stat status {};
    EXPECT_EQ(fstat(fd, &status), 0);
    moves_.push_back(
        {type, fcntl(fd, F_GETFD), fcntl(fd, F_GETFL), {status.st_dev, status.st_ino}});
    return 0;
  }

  // Any user may open its own namespace; it stands for the one of that path.
  static void provide(const std::string& path) {
    Fault::redirect("open", path, "/proc/self/ns/net");
  }

  static inline std::vector<Move> moves_;
};

TEST_F(NsutilCallsTest, TheNamespaceOfThatNameIsEnteredWithTheTypeThatWasAskedFor) {
  provide("/run/netns/blue");
  for (const int type : {CLONE_NEWNET, 0}) {
    EXPECT_EQ(setnsByName("blue", type), 0);
    ASSERT_FALSE(moves_.empty());
    EXPECT_EQ(moves_.back().type, type);
    EXPECT_EQ(moves_.back().target, idOf("/proc/self/ns/net"));
  }
  EXPECT_EQ(moves_.size(), 2u);
}

TEST_F(NsutilCallsTest, TheDescriptorIsForReadingAndDoesNotOutliveExec) {
  provide("/run/netns/blue");
  EXPECT_EQ(setnsByName("blue", CLONE_NEWNET), 0);
  ASSERT_EQ(moves_.size(), 1u);
  EXPECT_EQ(moves_[0].descriptorFlags, FD_CLOEXEC);
  EXPECT_EQ(moves_[0].statusFlags & O_ACCMODE, O_RDONLY);
}

TEST_F(NsutilCallsTest, DefaultIsTheNamespaceOfProcessOneWhereNoFileHasThatName) {
  Fault::arm("open", 1, ENOENT).onPath("/run/netns/default");
  provide("/proc/1/ns/net");
  EXPECT_EQ(setnsByName(DEFAULT_NS, CLONE_NEWNET), 0);
  EXPECT_EQ(moves_.size(), 1u);
  EXPECT_EQ(Fault::calls("open"), 2u);
}

TEST_F(NsutilCallsTest, AFileCalledDefaultIsTakenBeforeProcessOne) {
  provide("/run/netns/default");
  EXPECT_EQ(setnsByName(DEFAULT_NS, CLONE_NEWNET), 0);
  EXPECT_EQ(moves_.size(), 1u);
  EXPECT_EQ(Fault::calls("open"), 1u);
}

TEST_F(NsutilCallsTest, ASuccessKeepsTheTraceOfTheLastFailure) {
  provide("/run/netns/blue");
  inThread([] {
    EXPECT_EQ(setnsByName("a/b", CLONE_NEWNET), -1);
    EXPECT_EQ(setnsByName("blue", CLONE_NEWNET), 0);
    EXPECT_STREQ(netnsGetTracebuffer(), "setnsByName() a/b: Invalid argument");
  });
}

TEST_F(NsutilCallsTest, NamesThatBeginLikeThoseThatAreNoneAreNames) {
  for (const char* name : {"...", ".a", "..a", "defaul", "default2"}) {
    provide(std::string("/run/netns/") + name);
    EXPECT_EQ(setnsByName(name, CLONE_NEWNET), 0) << name;
  }
}

TEST_F(NsutilCallsTest, DescriptorZeroIsADescriptor) {
  const DescriptorZero zero;
  for (const char* name : {"blue", DEFAULT_NS}) {
    provide(std::string("/run/netns/") + name);
    zero.free();
    errno = ENOENT;
    EXPECT_EQ(setnsByName(name, CLONE_NEWNET), 0) << netnsGetTracebuffer();
    EXPECT_FALSE(DescriptorZero::isOpen());
  }
  EXPECT_EQ(moves_.size(), 2u);
  EXPECT_EQ(Fault::calls("open"), 2u);
}

}  // namespace
}  // namespace Zorbe::Test
