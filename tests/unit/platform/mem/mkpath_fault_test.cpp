// SPDX-License-Identifier: MIT
#include <utility>
#include <vector>

#include "fault/fault.h"
#include "unit/platform/mem/mkpath_fixture.h"

namespace Zorbe::Test {
namespace {

class MkpathFaultTest : public MkpathTest {
 protected:
  // errno of mkpath when the next one of each of these calls fails.
  int errorWith(const std::vector<std::pair<const char*, int>>& failures,
                const std::string& name) const {
    for (const auto& [call, error] : failures) Fault::arm(call, 1, error);
    return errorOf(inRoot(name));
  }

  void removeIt(const std::string& name) const {
    EXPECT_EQ(rmdir(inRoot(name).c_str()), 0) << name;
  }

  /// Making a directory fails, after so many of these calls.
  void expectFailure(int error, const std::string& call, unsigned calls) const {
    EXPECT_EQ(errorOf(inRoot("a")), error);
    EXPECT_EQ(Fault::calls(call), calls);
  }
};

TEST_F(MkpathFaultTest, MakesNothingThatIsThere) {
  makeDirectory("a", 0755);
  Fault::reset();
  const auto readOnly = Fault::arm("mkdirat", 1, EROFS, Fault::kForever).onPath(inRoot("a"));
  allowUnfiredFaults();
  EXPECT_EQ(errorOf(inRoot("a/b")), 0);
  EXPECT_EQ(readOnly.fired(), 0u);
  EXPECT_EQ(Fault::calls("mkdirat"), 1u);
  EXPECT_EQ(Fault::calls("fchmod"), 1u);
}

TEST_F(MkpathFaultTest, AnExistingDirectoryCostsOneLook) {
  Fault::reset();
  EXPECT_EQ(errorOf(rootPath()), 0);
  EXPECT_EQ(Fault::calls("stat"), 1u);
  EXPECT_EQ(Fault::calls("mkdirat") + Fault::calls("fchmod") + Fault::calls("lstat"), 0u);
}

TEST_F(MkpathFaultTest, ChangesTheModeOfADirectoryThatMayNotBeOpenedByItsName) {
  Fault::arm("openat", 1, EACCES);
  EXPECT_EQ(errorOf(inRoot("a")), 0);
  EXPECT_EQ(modeOf("a"), 0777u);
}

TEST_F(MkpathFaultTest, BeginsAgainWhenADirectoryThatMayNotBeOpenedIsRemoved) {
  Fault::before("openat", 1, [this] { removeIt("a"); });
  Fault::arm("openat", 1, EACCES);
  EXPECT_EQ(errorOf(inRoot("a")), 0);
  EXPECT_EQ(modeOf("a"), 0777u);
  EXPECT_EQ(Fault::calls("mkdirat"), 2u);
}

TEST_F(MkpathFaultTest, LeavesTheErrnoOfMkdir) {
  for (const int error : {EROFS, ENOSPC, EMLINK, EDQUOT, EPERM, EIO}) {
    Fault::arm("mkdirat", 1, error);
    EXPECT_EQ(errorOf(inRoot("a/b")), error);
    EXPECT_FALSE(exists("a"));
  }
}

TEST_F(MkpathFaultTest, LeavesTheErrnoOfMkdirWhenACloseFails) {
  EXPECT_EQ(errorWith({{"mkdirat", EROFS}, {"close", EIO}}, "a"), EROFS);
}

TEST_F(MkpathFaultTest, LeavesTheErrnoOfStat) {
  Fault::arm("stat", 2, EIO);
  EXPECT_EQ(errorOf(inRoot("a/b")), EIO);
  EXPECT_FALSE(exists("a"));
}

TEST_F(MkpathFaultTest, LeavesTheErrnoOfChmod) {
  Fault::arm("fchmod", 1, EPERM);
  EXPECT_EQ(errorOf(inRoot("a/b")), EPERM);
  EXPECT_FALSE(exists("a/b"));
}

TEST_F(MkpathFaultTest, ADirectoryOfAnotherProcessKeepsItsMode) {
  Fault::before("mkdirat", 1, [this] { makeDirectory("a", 0711); });
  expectMade();
  EXPECT_EQ(modeOf("a"), 0711u);
}

TEST_F(MkpathFaultTest, ADirectoryThatAppearsIsSuccessForAnyResultOfMkdir) {
  Fault::before("mkdirat", 1, [this] { makeDirectory("a", 0711); });
  Fault::arm("mkdirat", 1, EROFS);
  EXPECT_EQ(errorOf(inRoot("a")), 0);
}

TEST_F(MkpathFaultTest, AFileThatAppearsIsInTheWay) {
  Fault::before("mkdirat", 1, [this] { makeFile("a"); });
  EXPECT_EQ(errorOf(inRoot("a/b")), ENOTDIR);
}

TEST_F(MkpathFaultTest, BeginsAgainWhenAParentVanishes) {
  makeDirectory("a", 0755);
  Fault::before("mkdirat", 1, [this] { removeIt("a"); });
  expectMade();
  EXPECT_EQ(modeOf("a"), 0777u);
}

TEST_F(MkpathFaultTest, BeginsAgainWhenItsDirectoryVanishesBeforeChmod) {
  Fault::before("openat", 2, [this] {
    removeIt("a/b");
    removeIt("a");
  });
  expectMade();
}

TEST_F(MkpathFaultTest, BeginsAgainWhenWhatTookTheNameVanishes) {
  Fault::arm("mkdirat", 1, EEXIST);
  expectMade();
}

TEST_F(MkpathFaultTest, TakesWhatHasAppearedUnderANameThatWasTaken) {
  Fault::arm("mkdirat", 1, EEXIST);
  Fault::before("lstat", 1, [this] { makeDirectory("a", 0711); });
  expectMade();
  EXPECT_EQ(modeOf("a"), 0711u);
}

TEST_F(MkpathFaultTest, LeavesTheErrnoOfLstatForANameThatIsTaken) {
  EXPECT_EQ(errorWith({{"mkdirat", EEXIST}, {"lstat", EIO}}, "a/b"), EIO);
}

TEST_F(MkpathFaultTest, LeavesTheErrnoOfChmodForADirectoryThatWasRemoved) {
  EXPECT_EQ(errorWith({{"fchmod", EPERM}, {"fstat", ENOENT}}, "a"), EPERM);
}

TEST_F(MkpathFaultTest, AcceptsADirectoryThatAnotherUserHasMadeAgain) {
  Fault::arm("fchmod", 1, EPERM);
  Fault::alterStat("fstat", 1, [](struct stat& status) { status.st_uid = geteuid() + 1; });
  EXPECT_EQ(errorOf(inRoot("a")), 0);
}

TEST_F(MkpathFaultTest, ALinkThatTookItsPlaceIsNotFollowed) {
  makeDirectory("private", 0700);
  Fault::before("openat", 1, [this] {
    removeIt("a");
    makeLink("private", "a");
  });
  EXPECT_EQ(errorOf(inRoot("a")), 0) << "a link to a directory is one";
  EXPECT_EQ(modeOf("private"), 0700u);
}

TEST_F(MkpathFaultTest, ALinkThatTookThePlaceOfItsParentIsNotFollowed) {
  makeDirectory("a", 0777);
  makeDirectory("home", 0755);
  makeDirectory("home/b", 0700);
  Fault::before("openat", 1, [this] {
    ASSERT_EQ(rename(inRoot("a").c_str(), inRoot("elsewhere").c_str()), 0);
    makeLink("home", "a");
  });
  EXPECT_EQ(errorOf(inRoot("a/b")), 0);
  EXPECT_EQ(modeOf("home/b"), 0700u);
  EXPECT_EQ(modeOf("elsewhere/b"), 0777u);
}

TEST_F(MkpathFaultTest, AFileThatTookItsPlaceIsInTheWay) {
  Fault::before("openat", 1, [this] {
    removeIt("a");
    makeFile("a");
  });
  EXPECT_EQ(errorOf(inRoot("a")), ENOTDIR);
}

TEST_F(MkpathFaultTest, SaysWhatOpenSaid) {
  Fault::arm("openat", 1, EMFILE);
  EXPECT_EQ(errorOf(inRoot("a")), EMFILE);
  Fault::arm("open", 1, ENFILE);
  EXPECT_EQ(errorOf(inRoot("b")), ENFILE);
}

TEST_F(MkpathFaultTest, WaitsUntilItsMakerHasOpenedADirectory) {
  makeDirectory("a", 0777);
  Fault::arm("mkdirat", 1, EACCES, 3);
  Fault::armResult("poll", 1, 0, Fault::kForever);
  EXPECT_EQ(errorOf(inRoot("a/b")), 0);
  EXPECT_EQ(Fault::calls("poll"), 3u);
}

TEST_F(MkpathFaultTest, DoesNotWaitForADirectoryThatIsClosedForGood) {
  Fault::arm("mkdirat", 1, EACCES);
  Fault::alterStat("stat", 2, [](struct stat& status) {
    status.st_ctim.tv_sec -= 60;
  }).onPath(rootPath());
  expectFailure(EACCES, "poll", 0);
}

TEST_F(MkpathFaultTest, DoesNotWaitWhereNothingCanBeLookedAt) {
  Fault::arm("stat", 1, EACCES, Fault::kForever);
  expectFailure(EACCES, "poll", 0);
}

TEST_F(MkpathFaultTest, WaitsOnWhenASignalEndsThePause) {
  Fault::arm("mkdirat", 1, EACCES, 2);
  Fault::arm("poll", 1, EINTR, 2);
  EXPECT_EQ(errorOf(inRoot("a")), 0);
}

TEST_F(MkpathFaultTest, GivesUpWhenThereIsNoWayToWait) {
  Fault::arm("mkdirat", 1, EACCES);
  Fault::arm("poll", 1, ENOMEM);
  EXPECT_EQ(errorOf(inRoot("a")), EACCES);
}

TEST_F(MkpathFaultTest, GivesUpOnADirectoryThatStaysClosed) {
  Fault::arm("mkdirat", 1, EACCES, Fault::kForever);
  Fault::armResult("poll", 1, 0, Fault::kForever);
  expectFailure(EACCES, "mkdirat", 1000);
}

TEST_F(MkpathFaultTest, GivesUpOnADirectoryThatVanishesForEver) {
  Fault::arm("mkdirat", 1, ENOENT, Fault::kForever);
  expectFailure(ENOENT, "mkdirat", 1000);
}

}  // namespace
}  // namespace Zorbe::Test
