// SPDX-License-Identifier: MIT
#include "unit/src/mounter/mounter_fixture.h"

#include <sys/inotify.h>

#include <memory>
#include <stdexcept>
#include <tuple>
#include <type_traits>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_base_of_v<Brask::Platform::InotifyHandler, MounterSmBase>);
static_assert(std::is_base_of_v<Brask::Debuggable, MounterSmBase>);
static_assert(std::is_abstract_v<MounterSmBase>);

class ParentMounterSmTest : public FakePlatformTest {
 protected:
  void watch(const std::string& path) {
    parent = std::make_unique<Parent>(handler, &child, path);
    ready();
  }
  void ready() {
    handler.clear();
    platform.takeCalls();
  }

  /// What the constructor throws for `path`.
  std::string refusalOf(const std::string& path) {
    try {
      watch(path);
    } catch (const Brask::RuntimeException& exception) {
      return exception.what();
    }
    return "nothing was thrown";
  }

  static constexpr const char* kRewatch = "inotify#0 addWatch /var/shmem/zorbes 0x2c0";

  Child child{platform};
  std::unique_ptr<Parent> parent;
};

TEST_F(ParentMounterSmTest, TheMaskAsksForMovesAndDeletionsOfEntries) {
  EXPECT_EQ(ParentMounterSm::PARENT_MASK, 0x2c0u);
  EXPECT_EQ(ParentMounterSm::PARENT_MASK, unsigned{IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE});
}

TEST_F(ParentMounterSmTest, WatchesTheParentOfThePath) {
  parent = std::make_unique<Parent>(handler, &child, "/var/shmem/zorbes/t1");
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#0 create", kRewatch));
  EXPECT_TRUE(parent->isWatching());
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5,
                                 "ParentMounterSm::ParentMounterSm() successfully initialized "
                                 "with path:/var/shmem/zorbes and child name: t1")));
}

TEST_F(ParentMounterSmTest, SplitsThePathBeforeItsLastComponent) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"/var/shmem/zorbes/t1", "/var/shmem/zorbes", "t1"},
      {"/var/shmem/zorbes/t1/", "/var/shmem/zorbes", "t1"},
      {"/var/shmem/zorbes/t1//", "/var/shmem/zorbes", "t1"},
      {"/t1", "", "t1"},
      {"/t1///", "", "t1"},
      {"//t1", "/", "t1"},
      {"/a//t1", "/a/", "t1"},
      {"a/b", "a", "b"},
      {"/x", "", "x"}};
  for (const auto& [path, directory, entry] : cases) {
    watch(path);
    EXPECT_EQ(parent->directory(), directory) << path;
    EXPECT_EQ(parent->entry(), entry) << path;
  }
}

TEST_F(ParentMounterSmTest, RefusesAPathWithoutParentAndChild) {
  handler.expectFailures();
  for (const std::string path : {"t1", "t1/", "t1//", "/", "//", ""}) {
    handler.clear();
    const std::string text =
        "ParentMounterSm::ParentMounterSm() failed to find child name for path: " + path;
    EXPECT_EQ(refusalOf(path), text);
    EXPECT_THAT(handler.texts(0), ElementsAre(text));
  }
}

TEST_F(ParentMounterSmTest, ARefusedPathIsNotWatched) {
  handler.expectFailures();
  refusalOf("t1");
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#0 create", "inotify#0 delete"));
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(0, testing::StartsWith("ParentMounterSm::ParentMounterSm()")),
                          Logged(5, "MounterSmBase::~MounterSmBase()"),
                          Logged(5, "MounterSmBase::~MounterSmBase() deleting watch:")));
}

TEST_F(ParentMounterSmTest, NotifiesTheChildOfItsDeletionAndThenWatchesAgain) {
  watch("/var/shmem/zorbes/t1");
  platform.inotify(0).changed("t1");
  EXPECT_THAT(platform.calls(), ElementsAre("deleted", kRewatch));
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "ParentMounterSm::inotifyChanged() what: t1 childName: t1")));
}

TEST_F(ParentMounterSmTest, WatchesAgainAfterEachEvent) {
  watch("/var/shmem/zorbes/t1/");
  platform.inotify(0).changed("t1");
  platform.inotify(0).changed("t1");
  EXPECT_THAT(platform.calls(), ElementsAre("deleted", kRewatch, "deleted", kRewatch));
}

TEST_F(ParentMounterSmTest, IgnoresOtherEntries) {
  watch("/var/shmem/zorbes/t1");
  for (const std::string name : {"t", "t11", "T1", "xt1", "t1/", "", " t1"}) {
    platform.inotify(0).changed(name);
    EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ParentMounterSm::inotifyChanged() what: " +
                                                          name + " childName: t1")));
  }
  platform.inotify(0).changed(std::string("t1\0", 3));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(ParentMounterSmTest, PassesErrorsOn) {
  watch("/var/shmem/zorbes/t1");
  handler.expectFailures();
  platform.inotify(0).error("no space left");
  EXPECT_THAT(platform.calls(), ElementsAre("error no space left"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0,
                                                 "ParentMounterSm::inotifyError() received "
                                                 "error: no space left, notifying child")));
}

TEST_F(ParentMounterSmTest, TheEndOfTheParentItselfIsAnException) {
  watch("/var/shmem/zorbes/t1");
  handler.expectFailures();
  const std::string text =
      "ParentMounterSm::inotifyDeleted() received IN_DELETE_SELF or IN_MOVE_SELF but no such flag "
      "should be set";
  try {
    platform.inotify(0).deleted();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Brask::RuntimeException& exception) {
    EXPECT_EQ(exception.what(), text);
  }
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(ParentMounterSmTest, WhatTheChildThrowsPassesThrough) {
  watch("/var/shmem/zorbes/t1");
  child.onDeleted = [] { throw std::runtime_error("child"); };
  EXPECT_THROW(platform.inotify(0).changed("t1"), std::runtime_error);
  EXPECT_THAT(platform.calls(), ElementsAre("deleted"));
}

TEST_F(ParentMounterSmTest, EndsItsWatchWhenItIsDestroyed) {
  watch("/var/shmem/zorbes/t1");
  parent.reset();
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#0 delete"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "MounterSmBase::~MounterSmBase()"),
                                          Logged(5,
                                                 "MounterSmBase::~MounterSmBase() deleting watch:"
                                                 "/var/shmem/zorbes")));
}

TEST_F(ParentMounterSmTest, QueriesThePathOnlyToLogIt) {
  watch("/var/shmem/zorbes/t1");
  handler.setMaxLevel(4);
  const unsigned asked = handler.queries(5);
  parent.reset();
  EXPECT_EQ(handler.queries(5) - asked, 2u);
  EXPECT_EQ(platform.inotify(0).queries(), 0u);
}

}  // namespace
}  // namespace Zorbe::Test
