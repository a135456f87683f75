// SPDX-License-Identifier: MIT
#include "support/destroyed_object.h"
#include "unit/src/mounter/mounter_fixture.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The watch on the parent is inotify#1, since the root's is asked for first.
class MounterSmTest : public FakePlatformTest {
 protected:
  ~MounterSmTest() override { std::cerr.rdbuf(standardError); }

  void mount() {
    mounter = std::make_unique<Mounter>(handler, "quotes", &client);
    handler.clear();
    platform.takeCalls();
  }

  void remove() { EXPECT_EQ(rmdir(path.c_str()), 0); }

  static bool isDirectory(const std::string& directory) {
    struct stat status = {};
    return stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  }

  /// The root is resolved below the working directory, and failing to create it is no
  /// exception; what is said on standard error is kept.
  void enterChrootMode() {
    ASSERT_EQ(chdir(rootPath().c_str()), 0);
    ASSERT_EQ(unsetenv("SHMEM_ROOT"), 0);
    ASSERT_EQ(setenv("Q9_CHROOT", "", 1), 0);
    path = inRoot("zorbes/quotes");
  }

  std::ostringstream said;
  std::streambuf* const standardError = std::cerr.rdbuf(said.rdbuf());
  std::string path = inRoot("quotes");
  Client client{platform};
  std::unique_ptr<Mounter> mounter;
};

TEST_F(MounterSmTest, LeavesNoWatchingMemberBehind) {
  DestroyedObject<Mounter> watcher(handler, "quotes", &client);
  EXPECT_TRUE(watcher->isWatching());
  EXPECT_FALSE(watcher.destroyAndRead(watcher->watchingSlot()));
}

TEST_F(MounterSmTest, TheMaskAsksForFilesWrittenAndDeleted) {
  EXPECT_EQ(MounterSm::MOUNTER_DEFAULT_MASK, 0x208u);
  EXPECT_EQ(MounterSm::MOUNTER_DEFAULT_MASK, unsigned{IN_CLOSE_WRITE | IN_DELETE});
}

TEST_F(MounterSmTest, CreatesTheRootAndWatchesItsParentAndIt) {
  mounter = std::make_unique<Mounter>(handler, "quotes", &client);
  EXPECT_TRUE(isDirectory(path));
  EXPECT_TRUE(mounter->isWatching());
  EXPECT_TRUE(mounter->root().create);
  EXPECT_EQ(mounter->tableName(), "quotes");
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#0 create", "inotify#1 create",
                                            "inotify#1 addWatch " + rootPath() + " 0x2c0",
                                            "inotify#0 addWatch " + path + " 0x208"));
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(2, "RootPath::RootPath() rootpath is: " + path),
                          Logged(5,
                                 "ParentMounterSm::ParentMounterSm() successfully initialized "
                                 "with path:" +
                                     rootPath() + " and child name: quotes"),
                          Logged(2, "MounterSm::MounterSm() successfully initialized")));
}

TEST_F(MounterSmTest, ForwardsChangesAndErrorsWithoutLogging) {
  mount();
  platform.inotify(0).changed("slots");
  platform.inotify(0).error("queue overflow");
  EXPECT_THAT(platform.calls(), ElementsAre("rootChanged slots", "rootChanged queue overflow"));
  EXPECT_EQ(handler.queries(0), 0u);
  EXPECT_THAT(handler.messages(), IsEmpty());
}

TEST_F(MounterSmTest, CreatesADeletedRootWatchesItAgainAndNotifiesTheClient) {
  mount();
  remove();
  client.onChange = [&] { EXPECT_TRUE(isDirectory(path)); };
  platform.inotify(0).deleted();
  EXPECT_THAT(platform.calls(),
              ElementsAre("inotify#0 addWatch " + path + " 0x208", "rootChanged watch deleted"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2, "RootPath::RootPath() rootpath is: " + path)));
}

TEST_F(MounterSmTest, ADeletionSeenInTheParentDoesTheSameAndWatchesTheParentAgain) {
  mount();
  remove();
  platform.inotify(1).changed("quotes");
  EXPECT_TRUE(isDirectory(path));
  EXPECT_THAT(platform.calls(),
              ElementsAre("inotify#0 addWatch " + path + " 0x208", "rootChanged watch deleted",
                          "inotify#1 addWatch " + rootPath() + " 0x2c0"));
}

TEST_F(MounterSmTest, ADeletionMayBeReportedTwice) {
  mount();
  remove();
  platform.inotify(0).deleted();
  platform.inotify(1).changed("quotes");
  EXPECT_EQ(
      std::count(platform.calls().begin(), platform.calls().end(), "rootChanged watch deleted"), 2);
}

TEST_F(MounterSmTest, OtherTablesOfTheParentAreOfNoInterest) {
  mount();
  platform.inotify(1).changed("quotes2");
  platform.inotify(1).changed("quote");
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(MounterSmTest, AnErrorOfTheParentsWatchReachesTheClient) {
  mount();
  handler.expectFailures();
  platform.inotify(1).error("too many watches");
  EXPECT_THAT(platform.calls(), ElementsAre("rootChanged too many watches"));
}

TEST_F(MounterSmTest, TheRootIsResolvedAgainFromTheNameAfterADeletion) {
  mount();
  ASSERT_EQ(setenv("SHMEM_ROOT", inRoot("other").c_str(), 1), 0);
  platform.inotify(0).deleted();
  EXPECT_EQ(mounter->root().path, inRoot("other/quotes"));
  EXPECT_EQ(platform.inotify(0).path(), inRoot("other/quotes"));
}

TEST_F(MounterSmTest, AMissingDirectoryOutsideChrootModeIsAnException) {
  platform.failMkpath(EACCES);
  handler.expectFailures();
  EXPECT_THROW(Mounter(handler, "quotes", &client), Brask::InvalidInitializeException);
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#0 create", "inotify#0 delete"));
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(0, "RootPath::RootPath() mkpath() error " + path + ": Permission denied"),
                  Logged(5, "MounterSmBase::~MounterSmBase()"),
                  Logged(5, "MounterSmBase::~MounterSmBase() deleting watch:")));
}

TEST_F(MounterSmTest, ADeletedDirectoryThatCannotBeCreatedIsAnExceptionToo) {
  mount();
  remove();
  platform.failMkpath(EACCES);
  handler.expectFailures();
  EXPECT_THROW(platform.inotify(0).deleted(), Brask::InvalidInitializeException);
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(mounter->root().path, path);
}

TEST_F(MounterSmTest, WithoutADirectoryInChrootModeOnlyTheParentIsWatched) {
  enterChrootMode();
  platform.failMkpath(EACCES);
  handler.expectFailures();
  mounter = std::make_unique<Mounter>(handler, "quotes", &client);
  EXPECT_FALSE(mounter->isWatching());
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#0 create", "inotify#1 create",
                                            "inotify#1 addWatch " + inRoot("zorbes") + " 0x2c0"));
  EXPECT_THAT(handler.messages().back(),
              Logged(1, "MounterSm::MounterSm() failed to initialize rootPath: " + path));
}

TEST_F(MounterSmTest, ADirectoryThatCannotBeCreatedAgainInChrootModeIsNotReported) {
  enterChrootMode();
  mount();
  remove();
  platform.failMkpath(EACCES);
  handler.expectFailures();
  platform.inotify(0).deleted();
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_FALSE(mounter->root().initialized);
  EXPECT_THAT(handler.messages().back(),
              Logged(1, "MounterSm::inotifyDeleted() failed to initialize rootPath: " + path));
}

TEST_F(MounterSmTest, ADirectoryThatCanBeCreatedAfterAllIsWatchedFromThenOn) {
  enterChrootMode();
  platform.failMkpath(EACCES);
  handler.expectFailures();
  mount();
  platform.failMkpath(0);
  client.onChange = [&] { EXPECT_TRUE(mounter->isWatching()); };
  platform.inotify(1).changed("quotes");
  EXPECT_TRUE(mounter->isWatching());
  EXPECT_THAT(platform.calls(),
              ElementsAre("inotify#0 addWatch " + path + " 0x208", "rootChanged watch deleted",
                          "inotify#1 addWatch " + inRoot("zorbes") + " 0x2c0"));
}

TEST_F(MounterSmTest, EndsTheParentsWatchBeforeItsOwnAndLeavesTheDirectory) {
  mount();
  mounter.reset();
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#1 delete", "inotify#0 delete"));
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "MounterSmBase::~MounterSmBase()"),
                          Logged(5, "MounterSmBase::~MounterSmBase() deleting watch:" + rootPath()),
                          Logged(5, "MounterSmBase::~MounterSmBase()"),
                          Logged(5, "MounterSmBase::~MounterSmBase() deleting watch:" + path)));
  EXPECT_TRUE(isDirectory(path));
}

TEST_F(MounterSmTest, ARootWithoutAParentIsRefused) {
  ASSERT_EQ(setenv("SHMEM_ROOT", "/", 1), 0);
  handler.expectFailures();
  Fault::armResult("chmod", 1, 0).onPath("/");
  EXPECT_THROW(Mounter(handler, "", &client), Brask::RuntimeException);
  EXPECT_EQ(handler.texts(0).back(),
            "ParentMounterSm::ParentMounterSm() failed to find child name for path: /");
}

}  // namespace
}  // namespace Zorbe::Test
