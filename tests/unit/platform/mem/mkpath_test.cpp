// SPDX-License-Identifier: MIT
#include <mem/mkpath.h>

#include "support/parallel.h"
#include "unit/platform/mem/mkpath_fixture.h"

#include <atomic>
#include <thread>
#include <vector>

namespace Zorbe::Test {
namespace {

TEST_F(MkpathTest, CreatesEveryMissingComponentWithTheMode) {
  EXPECT_EQ(Mem::mkpath(inRoot("a/b/c"), 0751), 0);
  EXPECT_EQ(modeOf("a"), 0751u);
  EXPECT_EQ(modeOf("a/b"), 0751u);
  EXPECT_EQ(modeOf("a/b/c"), 0751u);
}

TEST_F(MkpathTest, TheUmaskTakesNothingAway) {
  const mode_t before = umask(0777);
  EXPECT_EQ(Mem::mkpath(inRoot("a/b"), 0777), 0);
  EXPECT_EQ(umask(before), 0777u);
  EXPECT_EQ(modeOf("a"), 0777u);
  EXPECT_EQ(modeOf("a/b"), 0777u);
}

TEST_F(MkpathTest, ExistingDirectoriesKeepTheirMode) {
  makeDirectory("a", 0700);
  makeDirectory("a/b", 0710);
  EXPECT_EQ(Mem::mkpath(inRoot("a/b"), 0777), 0);
  EXPECT_EQ(Mem::mkpath(inRoot("a/b/c"), 0777), 0);
  EXPECT_EQ(modeOf("a"), 0700u);
  EXPECT_EQ(modeOf("a/b"), 0710u);
  EXPECT_EQ(modeOf("a/b/c"), 0777u);
}

TEST_F(MkpathTest, AFileInTheWayIsNoDirectory) {
  makeFile("file");
  EXPECT_EQ(errorOf(inRoot("file")), ENOTDIR);
  EXPECT_EQ(errorOf(inRoot("file/a")), ENOTDIR);
  EXPECT_EQ(errorOf(inRoot("file/a/b")), ENOTDIR);
}

TEST_F(MkpathTest, ALinkToADirectoryIsFollowed) {
  makeDirectory("real", 0700);
  makeLink("real", "link");
  EXPECT_EQ(Mem::mkpath(inRoot("link"), 0777), 0);
  EXPECT_EQ(Mem::mkpath(inRoot("link/a"), 0777), 0);
  EXPECT_EQ(modeOf("real"), 0700u);
  EXPECT_EQ(modeOf("real/a"), 0777u);
}

TEST_F(MkpathTest, ALinkThatLeadsNowhereIsInTheWay) {
  makeLink("nowhere", "link");
  EXPECT_EQ(errorOf(inRoot("link")), ENOTDIR);
  EXPECT_EQ(errorOf(inRoot("link/a")), ENOTDIR);
  EXPECT_FALSE(exists("nowhere"));
}

TEST_F(MkpathTest, ALinkThatLeadsToItselfIsALoop) {
  makeLink("link", "link");
  EXPECT_EQ(errorOf(inRoot("link/a")), ELOOP);
}

TEST_F(MkpathTest, ExtraSlashesMeanNothing) {
  EXPECT_EQ(Mem::mkpath(inRoot("a//b///"), 0755), 0);
  EXPECT_EQ(Mem::mkpath("//" + inRoot("c/"), 0755), 0);
  EXPECT_TRUE(exists("a/b"));
  EXPECT_TRUE(exists("c"));
}

TEST_F(MkpathTest, DotsAreWalkedThrough) {
  EXPECT_EQ(Mem::mkpath(inRoot("a/./b/../c/."), 0755), 0);
  EXPECT_TRUE(exists("a/b"));
  EXPECT_TRUE(exists("a/c"));
}

TEST_F(MkpathTest, ARelativePathStartsAtTheWorkingDirectory) {
  ASSERT_EQ(chdir(rootPath().c_str()), 0);
  EXPECT_EQ(Mem::mkpath("a/b", 0755), 0);
  EXPECT_EQ(Mem::mkpath(".", 0755), 0);
  EXPECT_TRUE(exists("a/b"));
}

TEST_F(MkpathTest, ARemovedWorkingDirectoryHoldsNothing) {
  makeDirectory("gone", 0755);
  ASSERT_EQ(chdir(inRoot("gone").c_str()), 0);
  ASSERT_EQ(rmdir(inRoot("gone").c_str()), 0);
  EXPECT_EQ(errorOf("a/b"), ENOENT);
}

TEST_F(MkpathTest, RefusesWhatIsNoPath) {
  EXPECT_EQ(errorOf(""), ENOENT);
  EXPECT_EQ(errorOf(inRoot("a") + std::string("\0b", 2)), EINVAL);
  EXPECT_FALSE(exists("a"));
  EXPECT_EQ(errorOf(inRoot(std::string(256, 'x'))), ENAMETOOLONG);
  EXPECT_EQ(errorOf(inRoot(std::string(5000, '/') + "x")), ENAMETOOLONG);
}

TEST_F(MkpathTest, TheRootIsThere) {
  EXPECT_EQ(Mem::mkpath("/", 0777), 0);
  EXPECT_EQ(Mem::mkpath("///", 0777), 0);
}

TEST_F(MkpathTest, AnOrdinaryUserIsKeptOut) {
  EXPECT_EQ(asOrdinaryUser([] { return errorOf("/zorbe-test-none/a/b"); }), EACCES);
  EXPECT_NE(access("/zorbe-test-none", F_OK), 0);
}

TEST_F(MkpathTest, AParentThatIsClosedDoesNotMatterWhenTheDirectoryIsThere) {
  makeDirectory("closed", 0755);
  makeDirectory("closed/inner", 0755);
  ASSERT_EQ(chmod(inRoot("closed").c_str(), 0555), 0);
  EXPECT_EQ(asOrdinaryUser([this] { return errorOf(inRoot("closed/inner")); }), 0);
}

TEST_F(MkpathTest, ThreadsThatCreateTheSamePathAllSucceed) {
  for (int round = 0; round < 50; ++round) {
    const std::string path = inRoot("r" + std::to_string(round) + "/a/b/c/d");
    std::atomic<int> succeeded{0};
    inParallel(8, [&] { succeeded += Mem::mkpath(path, 0777) == 0 ? 1 : 0; });
    EXPECT_EQ(succeeded, 8);
    EXPECT_EQ(modeOf("r" + std::to_string(round) + "/a/b/c/d"), 0777u);
  }
}

TEST_F(MkpathTest, OrdinaryUsersWithAClosedUmaskAllSucceed) {
  makeDirectory("open", 0777);
  for (int round = 0; round < 10; ++round) {
    const std::string path = "open/r" + std::to_string(round) + "/a/b";
    const auto make = [&](Channel&) {
      umask(0777);
      EXPECT_EQ(errorOf(inRoot(path)), 0);
    };
    std::vector<ChildProcess> children;
    for (int i = 0; i < 4; ++i) children.emplace_back("maker", make, User::kOrdinary);
    for (ChildProcess& child : children) EXPECT_EQ(child.finish(), 0);
    EXPECT_EQ(modeOf(path), 0777u);
  }
}

// A creation begins again only when a part has vanished, so that fewer removals than it
// has attempts cannot make it fail.
TEST_F(MkpathTest, SucceedsWhileOthersRemoveTheSamePath) {
  std::atomic<int> creating{4};
  std::atomic<int> succeeded{0};
  const auto create = [&] {
    for (int i = 0; i < 200; ++i) succeeded += Mem::mkpath(inRoot("a/b/c"), 0777) == 0 ? 1 : 0;
    --creating;
  };
  const auto remove = [&] {
    for (int removed = 0; removed < 900 && creating > 0;) {
      for (const char* part : {"a/b/c", "a/b", "a"}) {
        removed += rmdir(inRoot(part).c_str()) == 0 ? 1 : 0;
      }
    }
  };
  std::thread remover(remove);
  inParallel(4, create);
  remover.join();
  EXPECT_EQ(succeeded, 800);
}

}  // namespace
}  // namespace Zorbe::Test
