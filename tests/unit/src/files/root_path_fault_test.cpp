// SPDX-License-Identifier: MIT
#include <zorbe/root_path.h>

#include "fault/fault.h"
#include "support/fake_platform_fixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>

#include <cerrno>
#include <cstdlib>
#include <initializer_list>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RootPathFaultTest : public FakePlatformTest {
 protected:
  /// removeFile("slots") or cleanup() logs this when the call on the path fails.
  void expectLogged(const std::string& call, int error, const std::string& path,
                    const std::string& text) {
    RootPath root = existing();
    handler.expectFailures();
    handler.clobberErrno(ENOENT);
    Fault::arm(call, 1, error).onPath(path);
    call == "unlink" ? root.removeFile("slots") : root.cleanup();
    EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  }

  /// A failing unlink, rmdir and chmod.
  void failEachOperation(RootPath& root) {
    Fault::arm("unlink", 1, EACCES);
    Fault::arm("rmdir", 1, EBUSY);
    Fault::arm("chmod", 1, EPERM);
    root.removeFile("slots");
    root.cleanup();
    const RootPath again(handler, "t", true);
  }

  // Works below the test's own directory, as with Q9_CHROOT.
  void enterChrootMode() {
    ASSERT_EQ(chdir(rootPath().c_str()), 0);
    char path[4096];
    workingDirectory = getcwd(path, sizeof path);
    ASSERT_EQ(unsetenv("SHMEM_ROOT"), 0);
    ASSERT_EQ(setenv("Q9_CHROOT", "", 1), 0);
  }

  std::string thrown(const std::string& name, bool create) {
    try {
      const RootPath root(handler, name, create);
      return "nothing";
    } catch (const Brask::InvalidInitializeException& caught) {
      return caught.what();
    }
  }

  RootPath existing() {
    RootPath root(handler, "t", true);
    handler.clear();
    Fault::reset();
    return root;
  }

  std::string workingDirectory;
};

TEST_F(RootPathFaultTest, AnUnknownWorkingDirectoryIsThrown) {
  enterChrootMode();
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  Fault::arm("getcwd", 1, EACCES);
  const std::string text = "RootPath::RootPath() gwtcwd() failed: Permission denied";
  EXPECT_EQ(thrown("t", true), text);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  EXPECT_THAT(platform.mkpathCalls(), IsEmpty());
}

TEST_F(RootPathFaultTest, ADeletedWorkingDirectoryIsThrown) {
  handler.expectFailures();
  ASSERT_EQ(mkdir(inRoot("d").c_str(), 0700), 0);
  ASSERT_EQ(chdir(inRoot("d").c_str()), 0);
  ASSERT_EQ(rmdir(inRoot("d").c_str()), 0);
  ASSERT_EQ(setenv("SHMEM_ROOT", "", 1), 0);
  EXPECT_EQ(thrown("t", false), "RootPath::RootPath() gwtcwd() failed: No such file or directory");
}

TEST_F(RootPathFaultTest, AnAbsolutePathNeedsNoWorkingDirectory) {
  const RootPath root(handler, "t", false);
  EXPECT_EQ(Fault::calls("getcwd"), 0u);
}

TEST_F(RootPathFaultTest, AReasonThatIsMissingIsLeftOut) {
  enterChrootMode();
  handler.expectFailures();
  Fault::arm("getcwd", 1, EACCES);
  Fault::arm("strerror", 1, 0);
  EXPECT_EQ(thrown("t", true), "RootPath::RootPath() gwtcwd() failed: ");
  EXPECT_EQ(handler.texts(0).at(0), "RootPath::RootPath() gwtcwd() failed: ");
}

TEST_F(RootPathFaultTest, ADirectoryThatCannotBeCreatedIsThrown) {
  handler.expectFailures();
  handler.clobberErrno(EEXIST);
  platform.failMkpath(EROFS);
  const std::string text =
      "RootPath::RootPath() mkpath() error " + inRoot("t") + ": Read-only file system";
  EXPECT_EQ(thrown("t", true), text);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  EXPECT_EQ(Fault::calls("chmod"), 0u);
}

TEST_F(RootPathFaultTest, OnlyChrootModeContinuesWithoutItsDirectory) {
  handler.allowFailures();
  platform.failMkpath(EROFS);
  ASSERT_EQ(unsetenv("SHMEM_ROOT"), 0);
  EXPECT_EQ(thrown("t", true),
            "RootPath::RootPath() mkpath() error /var/shmem/zorbes/t: Read-only file system");
  ASSERT_EQ(setenv("NSPATH", "/ns", 1), 0);
  EXPECT_EQ(thrown("t", true),
            "RootPath::RootPath() mkpath() error /var/shmem/zorbes/ns/t: Read-only file system");
}

TEST_F(RootPathFaultTest, ThrowsWhenLoggingIsOff) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  platform.failMkpath(EROFS);
  EXPECT_EQ(thrown("t", true),
            "RootPath::RootPath() mkpath() error " + inRoot("t") + ": Read-only file system");
}

TEST_F(RootPathFaultTest, ADirectoryOfAnotherProcessIsNoError) {
  ASSERT_EQ(mkdir(inRoot("t").c_str(), 0700), 0);
  handler.clobberErrno(EROFS);
  platform.failMkpath(EEXIST);
  const RootPath root(handler, "t", true);
  EXPECT_TRUE(root.initialized);
  EXPECT_EQ(Fault::calls("chmod"), 1u);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(2, "RootPath::RootPath() rootpath is: " + inRoot("t"))));
}

TEST_F(RootPathFaultTest, ChrootModeInformsTheUserAndContinues) {
  enterChrootMode();
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  platform.failMkpath(EACCES);
  testing::internal::CaptureStderr();
  const RootPath root(handler, "t", true);
  const std::string output = testing::internal::GetCapturedStderr();
  const std::string text =
      "RootPath::RootPath() mkpath() error " + workingDirectory + "/zorbes/t: Permission denied";
  EXPECT_EQ(output, text + "\nTry running from a writable directory.\n");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  EXPECT_FALSE(root.initialized);
  EXPECT_TRUE(root.create);
  EXPECT_EQ(root.path, workingDirectory + "/zorbes/t");
  EXPECT_EQ(Fault::calls("chmod"), 0u);
}

TEST_F(RootPathFaultTest, ChrootModeInformsTheUserWhenLoggingIsOff) {
  enterChrootMode();
  handler.setMaxLevel(RecordingHandler::kNothing);
  platform.failMkpath(EACCES);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(RootPath(handler, "t", true).initialized);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "RootPath::RootPath() mkpath() error " + workingDirectory +
                "/zorbes/t: Permission denied\nTry running from a writable directory.\n");
}

TEST_F(RootPathFaultTest, AFailingChmodIsLoggedAndNotFatal) {
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  Fault::arm("chmod", 1, EPERM).onPath(inRoot("t"));
  const RootPath root(handler, "t", true);
  EXPECT_TRUE(root.initialized);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(0, "RootPath::RootPath() chmod() error " + inRoot("t") +
                                        ": Operation not permitted"),
                          Logged(2, "RootPath::RootPath() rootpath is: " + inRoot("t"))));
}

TEST_F(RootPathFaultTest, ExistsLooksAtTheDirectoryBitAlone) {
  const RootPath root = existing();
  for (const mode_t type : std::initializer_list<mode_t>{S_IFDIR, S_IFBLK, S_IFSOCK}) {
    Fault::alterStat("stat", 1, [type](struct stat& status) { status.st_mode = type | 0600; });
    EXPECT_TRUE(root.exists()) << std::oct << type;
  }
  for (const mode_t type : std::initializer_list<mode_t>{S_IFREG, S_IFCHR, S_IFIFO, S_IFLNK}) {
    Fault::alterStat("stat", 1, [type](struct stat& status) { status.st_mode = type | 0777; });
    EXPECT_FALSE(root.exists()) << std::oct << type;
  }
}

TEST_F(RootPathFaultTest, WhatCannotBeExaminedDoesNotExist) {
  const RootPath root = existing();
  Fault::arm("stat", 1, EACCES);
  EXPECT_FALSE(root.exists());
  EXPECT_THAT(handler.take(), IsEmpty());
}

TEST_F(RootPathFaultTest, AFailingUnlinkIsLogged) {
  const std::string file = inRoot("t/slots");
  expectLogged("unlink", EACCES, file,
               "RootPath::removeFile() unlink() error " + file + ": Permission denied");
}

TEST_F(RootPathFaultTest, AFailingRmdirIsLogged) {
  expectLogged(
      "rmdir", EBUSY, inRoot("t"),
      "RootPath::cleanup() rmdir() error " + inRoot("t") + " reason: Device or resource busy");
}

TEST_F(RootPathFaultTest, ReasonsThatAreMissingAreLeftOut) {
  RootPath root = existing();
  handler.expectFailures();
  Fault::arm("strerror", 1, 0, 3);
  failEachOperation(root);
  EXPECT_THAT(handler.texts(0),
              ElementsAre("RootPath::removeFile() unlink() error " + inRoot("t/slots") + ": ",
                          "RootPath::cleanup() rmdir() error " + inRoot("t") + " reason: ",
                          "RootPath::RootPath() chmod() error " + inRoot("t") + ": "));
}

TEST_F(RootPathFaultTest, FormatsNoReasonThatIsNotLogged) {
  RootPath root = existing();
  handler.setMaxLevel(RecordingHandler::kNothing);
  failEachOperation(root);
  EXPECT_EQ(Fault::calls("strerror"), 0u);
  EXPECT_EQ(handler.queries(0), 3u);
}

}  // namespace
}  // namespace Zorbe::Test
