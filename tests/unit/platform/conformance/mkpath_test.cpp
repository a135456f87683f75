// SPDX-License-Identifier: MIT
//
// Mem::mkpath().
#include "conformance/fixture.h"
#include "support/parallel.h"

#include <mem/mkpath.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <filesystem>

namespace Zorbe::Conformance {
namespace {

class MkpathConformance : public ::testing::Test {
 protected:
  std::string inside(const std::string& name) const { return directory_.path + "/" + name; }

  // errno of mkpath, 0 when it succeeds.
  static int errorOf(const std::string& path) {
    errno = 0;
    return Mem::mkpath(path, 0777) == 0 ? 0 : errno;
  }

  // 0 where there is no directory.
  unsigned modeOf(const std::string& name) const {
    struct stat status {};
    if (::stat(inside(name).c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return 0;
    return status.st_mode & 07777u;
  }

  Directory directory_;
};

}  // namespace

TEST_F(MkpathConformance, MakesEveryMissingDirectory) {
  EXPECT_EQ(0, errorOf(inside("a/b/c")));
  EXPECT_NE(0u, modeOf("a/b/c"));
}

TEST_F(MkpathConformance, GivesEachDirectoryExactlyTheModeAndLeavesTheUmask) {
  const mode_t before = ::umask(0027);
  EXPECT_EQ(0, Mem::mkpath(inside("a/b"), 0777));
  EXPECT_EQ(0, Mem::mkpath(inside("c"), 0705));
  EXPECT_EQ(0027u, ::umask(before));
  EXPECT_EQ(0777u, modeOf("a"));
  EXPECT_EQ(0777u, modeOf("a/b"));
  EXPECT_EQ(0705u, modeOf("c"));
}

TEST_F(MkpathConformance, ADirectoryThatIsThereIsASuccess) {
  directory_.make("a");
  EXPECT_EQ(0, errorOf(inside("a")));
}

TEST_F(MkpathConformance, ADirectoryThatIsThereKeepsItsMode) {
  ASSERT_EQ(0, ::chmod(directory_.make("a").c_str(), 0710));
  EXPECT_EQ(0, errorOf(inside("a")));
  EXPECT_EQ(0, errorOf(inside("a/b")));
  EXPECT_EQ(0710u, modeOf("a"));
}

TEST_F(MkpathConformance, AFileInTheWayIsNoDirectory) {
  touch(inside("file"));
  EXPECT_EQ(ENOTDIR, errorOf(inside("file")));
  EXPECT_EQ(ENOTDIR, errorOf(inside("file/a")));
}

TEST_F(MkpathConformance, OtherErrorsAreThoseOfMkdir) {
  EXPECT_EQ(ENAMETOOLONG, errorOf(inside(std::string(256, 'x'))));
  EXPECT_EQ(ENOENT, errorOf(""));
}

TEST_F(MkpathConformance, ARelativePathStartsAtTheWorkingDirectory) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(directory_.path);
  EXPECT_EQ(0, errorOf("a/b"));
  std::filesystem::current_path(before);
  EXPECT_NE(0u, modeOf("a/b"));
}

TEST_F(MkpathConformance, ExtraSlashesMeanNothing) {
  EXPECT_EQ(0, errorOf(inside("a//b///")));
  EXPECT_NE(0u, modeOf("a/b"));
}

TEST_F(MkpathConformance, LinksAreFollowed) {
  std::filesystem::create_directory_symlink(directory_.make("a"), inside("link"));
  EXPECT_EQ(0, errorOf(inside("link")));
  EXPECT_EQ(0, errorOf(inside("link/b")));
  EXPECT_NE(0u, modeOf("a/b"));
}

TEST_F(MkpathConformance, AllWhoMakeAPathAtOnceSucceed) {
  for (int round = 0; round < 20; ++round) {
    const std::string name = std::to_string(round) + "/a/b";
    std::atomic<int> succeeded{0};
    Zorbe::Test::inParallel(4, [&] { succeeded += errorOf(inside(name)) == 0 ? 1 : 0; });
    EXPECT_EQ(4, succeeded);
    EXPECT_EQ(0777u, modeOf(name));
  }
}

// Fewer removals than any implementation has attempts.
TEST_F(MkpathConformance, SucceedsWhileOthersRemoveThePath) {
  constexpr int kRounds = 200, kRemovals = 3;
  std::atomic<int> round{0};
  std::thread remover([this, &round] {
    for (int last = 0, removals = 0; round < kRounds;) {
      for (const char* const part : {"a/b/c", "a/b", "a"}) {
        if (last != round) removals = 0;
        last = round;
        if (removals < kRemovals && ::rmdir(inside(part).c_str()) == 0) ++removals;
      }
    }
  });
  int succeeded = 0;
  while (round < kRounds) {
    succeeded += errorOf(inside("a/b/c")) == 0 ? 1 : 0;
    ++round;
  }
  remover.join();
  EXPECT_EQ(kRounds, succeeded);
}

}  // namespace Zorbe::Conformance
