// SPDX-License-Identifier: MIT
#include <zorbe/root_path.h>

#include "support/fake_platform_fixture.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RootPathTest : public FakePlatformTest {
 protected:
  static void set(const char* name, const std::string& value) {
    ASSERT_EQ(setenv(name, value.c_str(), 1), 0);
  }
  static void unset(const char* name) { ASSERT_EQ(unsetenv(name), 0); }

  std::string resolved(const std::string& name) { return RootPath(handler, name, false).path; }
  RootPath created(const std::string& name) {
    RootPath root(handler, name, true);
    handler.clear();
    return root;
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode;
  }
  std::string workingDirectory() {
    EXPECT_EQ(chdir(rootPath().c_str()), 0);
    char path[4096];
    return getcwd(path, sizeof path);
  }
  static void makeFile(const std::string& path) { std::ofstream(path) << "content"; }
};

TEST_F(RootPathTest, ShmemRootComesFirst) {
  set("SHMEM_ROOT", "/tmp/r");
  set("NSPATH", "/ns1");
  set("Q9_CHROOT", "1");
  EXPECT_EQ(resolved("t"), "/tmp/r/t");
}

TEST_F(RootPathTest, NspathIsAppendedWithoutASeparator) {
  unset("SHMEM_ROOT");
  set("Q9_CHROOT", "1");
  set("NSPATH", "/ns1");
  EXPECT_EQ(resolved("t"), "/var/shmem/zorbes/ns1/t");
  set("NSPATH", "ns1");
  EXPECT_EQ(resolved("t"), "/var/shmem/zorbesns1/t");
  set("NSPATH", "");
  EXPECT_EQ(resolved("t"), "/var/shmem/zorbes/t");
}

TEST_F(RootPathTest, ChrootModeIsRelativeToTheWorkingDirectory) {
  const std::string directory = workingDirectory();
  unset("SHMEM_ROOT");
  for (const char* value : {"1", "0", ""}) {
    set("Q9_CHROOT", value);
    EXPECT_EQ(resolved("t"), directory + "/zorbes/t");
  }
}

TEST_F(RootPathTest, WithoutAnyVariableTheDefaultHolds) {
  unset("SHMEM_ROOT");
  EXPECT_EQ(resolved("t"), "/var/shmem/zorbes/t");
  EXPECT_EQ(resolved(""), "/var/shmem/zorbes");
  EXPECT_EQ(resolved("/x"), "/var/shmem/zorbes/x");
}

TEST_F(RootPathTest, NamesAreAppendedAsTheyAre) {
  set("SHMEM_ROOT", "/r");
  EXPECT_EQ(resolved(""), "/r");
  EXPECT_EQ(resolved("a/b"), "/r/a/b");
  EXPECT_EQ(resolved("/a"), "/r/a");
  EXPECT_EQ(resolved("a/"), "/r/a/");
  EXPECT_EQ(resolved("/"), "/r/");
  set("SHMEM_ROOT", "/r/");
  EXPECT_EQ(resolved("a"), "/r//a");
}

TEST_F(RootPathTest, AnEmptyBaseIsTheWorkingDirectory) {
  const std::string directory = workingDirectory();
  set("SHMEM_ROOT", "");
  EXPECT_EQ(resolved("t"), directory + "/t");
  EXPECT_EQ(resolved(""), directory + "/");
  EXPECT_EQ(resolved("/t"), "/t");
  set("SHMEM_ROOT", "relative");
  EXPECT_EQ(resolved("t"), directory + "/relative/t");
}

TEST_F(RootPathTest, BelowTheSystemsRootTwoSlashesStay) {
  ASSERT_EQ(chdir("/"), 0);
  set("SHMEM_ROOT", "r");
  EXPECT_EQ(resolved("t"), "//r/t");
}

TEST_F(RootPathTest, LooksWithoutTouchingTheDisk) {
  const RootPath root(handler, "t", false);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2, "RootPath::RootPath() rootpath is: " +  //
                                                        inRoot("t"))));
  EXPECT_EQ(root.name, "t");
  EXPECT_FALSE(root.create);
  EXPECT_TRUE(root.initialized);
  EXPECT_FALSE(root.exists());
  EXPECT_THAT(platform.mkpathCalls(), IsEmpty());
}

TEST_F(RootPathTest, CreatesTheDirectoryWithItsParents) {
  const RootPath root(handler, "a/b", true);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2, "RootPath::RootPath() rootpath is: " +  //
                                                        inRoot("a/b"))));
  EXPECT_THAT(platform.mkpathCalls(), ElementsAre(inRoot("a/b") + " 0777"));
  EXPECT_TRUE(root.create);
  EXPECT_TRUE(root.initialized);
  EXPECT_TRUE(root.exists());
}

TEST_F(RootPathTest, OpensTheDirectoryToAllForAnyUmask) {
  umask(077);
  EXPECT_EQ(modeOf(created("t").path) & 07777u, 0777u);
  EXPECT_EQ(umask(077), 077u);
}

TEST_F(RootPathTest, OpensADirectoryThatWasThereBefore) {
  ASSERT_EQ(mkdir(inRoot("t").c_str(), 0700), 0);
  EXPECT_TRUE(created("t").initialized);
  EXPECT_EQ(modeOf(inRoot("t")) & 07777u, 0777u);
}

TEST_F(RootPathTest, IsCopiedMemberByMember) {
  const RootPath root(handler, "t", true);
  RootPath copy(root);
  EXPECT_EQ(copy.path, root.path);
  EXPECT_EQ(copy.name, "t");
  EXPECT_TRUE(copy.create);
  EXPECT_TRUE(copy.initialized);
  copy = RootPath(handler, "u", false);
  EXPECT_EQ(copy.path, inRoot("u"));
  EXPECT_FALSE(copy.create);
}

TEST_F(RootPathTest, ADirectoryExists) {
  const RootPath root(handler, "t", false);
  EXPECT_FALSE(root.exists());
  ASSERT_EQ(mkdir(root.path.c_str(), 0700), 0);
  EXPECT_TRUE(root.exists());
  EXPECT_EQ(handler.texts(0).size(), 0u);
}

TEST_F(RootPathTest, ARegularFileDoesNotExistAsARoot) {
  const RootPath root(handler, "t", false);
  makeFile(root.path);
  EXPECT_FALSE(root.exists());
}

TEST_F(RootPathTest, FullPathPutsTheFileBelowTheRoot) {
  set("SHMEM_ROOT", "/a");
  RootPath root(handler, "b", false);
  EXPECT_EQ(root.fullPath("slots"), "/a/b/slots");
  EXPECT_EQ(root.fullPath(""), "/a/b/");
  EXPECT_EQ(root.fullPath("/slots"), "/a/b//slots");
  root.path.clear();
  EXPECT_EQ(root.fullPath("slots"), "slots");
}

TEST_F(RootPathTest, PrintsItsPathAlone) {
  std::ostringstream out;
  EXPECT_EQ(&(out << RootPath(handler, "t", false)), &out);
  EXPECT_EQ(out.str(), inRoot("t"));
}

TEST_F(RootPathTest, RemovesAFile) {
  RootPath root = created("t");
  makeFile(root.fullPath("slots"));
  root.removeFile("slots");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(3, "RootPath::removeFile() removed file " +  //
                                                        inRoot("t/slots"))));
  EXPECT_EQ(access(inRoot("t/slots").c_str(), F_OK), -1);
}

TEST_F(RootPathTest, AMissingFileCountsAsRemoved) {
  RootPath root = created("t");
  root.removeFile("slots");
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(RootPathTest, ADirectoryIsNotRemovedAsAFile) {
  handler.expectFailures();
  RootPath root = created("t");
  ASSERT_EQ(mkdir(root.fullPath("slots").c_str(), 0700), 0);
  root.removeFile("slots");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "RootPath::removeFile() unlink() error " +
                                                        inRoot("t/slots") + ": Is a directory")));
}

TEST_F(RootPathTest, CleanupRemovesTheEmptyDirectory) {
  RootPath root = created("t");
  root.cleanup();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(3, "RootPath::cleanup() directory " + inRoot("t"))));
  EXPECT_FALSE(root.exists());
}

TEST_F(RootPathTest, CleanupOfAMissingDirectoryIsSilent) {
  RootPath root(handler, "t", false);
  handler.clear();
  root.cleanup();
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(RootPathTest, CleanupLeavesADirectoryThatIsNotEmpty) {
  handler.expectFailures();
  RootPath root = created("t");
  makeFile(root.fullPath("slots"));
  root.cleanup();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(0, "RootPath::cleanup() rmdir() error " + inRoot("t") +
                                        " reason: Directory not empty")));
  EXPECT_TRUE(root.exists());
}

}  // namespace
}  // namespace Zorbe::Test
