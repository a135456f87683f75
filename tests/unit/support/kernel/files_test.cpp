// SPDX-License-Identifier: MIT
//
// The model of files and inotify against Linux: the same steps have the same results, and the
// same events are read.
#include "unit/support/kernel/file_steps.h"

namespace Zorbe::Test::Kernel {
namespace {

TEST(FilesTest, AFileHasTheContentThatWasWrittenLast) {
  compare([](auto& steps) {
    steps.makeDirectories("/a/b");
    steps.read("/a/b/file");
    steps.write("/a/b/file", "one");
    steps.write("/a/b/file", "2");
    steps.read("/a/b/file");
  });
}

TEST(FilesTest, AFileNeedsADirectoryAndADirectoryIsNoFile) {
  compare([](auto& steps) {
    steps.write("/a/file", "x");
    steps.makeDirectories("/a");
    steps.write("/a", "x");
    steps.write("/a/file", "x");
  });
}

TEST(FilesTest, OnlyAnEmptyDirectoryIsRemovedByItself) {
  compare([](auto& steps) {
    steps.makeDirectories("/a/b");
    steps.remove("/a");
    steps.remove("/a/b");
    steps.remove("/a");
    steps.remove("/a");
    steps.removeTree("/a");
  });
}

TEST(FilesTest, AWatchReportsFilesThatAreWrittenAndRemoved) {
  compare([](auto& steps) {
    steps.makeDirectories("/a/b");
    steps.watch("/a");
    steps.write("/a/file", "x");
    steps.write("/a/b/below", "x");
    steps.remove("/a/file");
    steps.write("/beside", "x");
  });
}

TEST(FilesTest, NamesThatAreGivenAndChangedAreReported) {
  compare([](auto& steps) {
    steps.makeDirectories("/a/b");
    steps.watch("/a", IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO);
    steps.link("/a/file");
    steps.link("/a/file");
    steps.link("/a/other");
    steps.rename("/a/other", "/a/file");
    steps.rename("/a/other", "/a/file");
    steps.rename("/a/file", "/a/b");
    steps.remove("/a/file");
    steps.remove("/a/other");
  });
}

TEST(FilesTest, EqualEventsInARowAreReportedOnce) {
  compare([](auto& steps) {
    steps.makeDirectories("/a");
    steps.watch("/a");
    for (const char* name : {"/a/one", "/a/one", "/a/two", "/a/one"}) steps.write(name, "x");
  });
}

TEST(FilesTest, AWatchEndsWithItsDirectoryAndDoesNotReturnWithIt) {
  compare([](auto& steps) {
    steps.makeDirectories("/a/b");
    steps.write("/a/b/file", "x");
    steps.watch("/a/b");
    steps.removeTree("/a/b");
    steps.makeDirectories("/a/b");
    steps.write("/a/b/file", "x");
  });
}

TEST(FilesTest, WatchingADirectoryAgainLosesNothing) {
  compare([](auto& steps) {
    steps.makeDirectories("/a");
    steps.watch("/a");
    steps.write("/a/file", "x");
    steps.watch("/a");
    steps.remove("/a/file");
  });
}

TEST(FilesTest, TheRemovalOfADirectoryIsReportedToTheWatchOfItsParent) {
  compare([](auto& steps) {
    steps.makeDirectories("/a/b");
    steps.watch("/a");
    steps.removeTree("/a/b");
    steps.makeDirectories("/a/b");
    steps.remove("/a/b");
  });
}

// Kernels differ in the order.
TEST(FilesTest, TheEndOfADirectoryIsReportedToItsWatchAndToThatOfItsParent) {
  const auto script = [](auto& steps) {
    steps.makeDirectories("/a/b");
    steps.watch("/a");
    steps.watch("/a/b");
    steps.remove("/a/b");
  };
  EXPECT_THAT(outcome<Linux>(script),
              testing::AnyOf(outcome<Model>(script), outcome<ModelWithParentFirst>(script)));
}

TEST(FilesTest, AWatchThatIsRemovedIsIgnoredOnceAndItsNumberIsNotUsedAgain) {
  compare([](auto& steps) {
    steps.makeDirectories("/a");
    const int wd = steps.watch("/a");
    steps.unwatch(wd);
    steps.unwatch(wd);
    steps.write("/a/file", "x");
    steps.watch("/a");
  });
}

TEST(FilesTest, AMaskReplacesTheFormerOneUnlessItIsAdded) {
  compare([](auto& steps) {
    steps.makeDirectories("/a");
    steps.watch("/a", IN_CLOSE_WRITE);
    steps.watch("/a", IN_DELETE | IN_MASK_ADD);
    steps.write("/a/file", "x");
    steps.remove("/a/file");
    steps.watch("/a", IN_DELETE);
    steps.write("/a/file", "x");
    steps.remove("/a/file");
  });
}

TEST(FilesTest, AFullQueueEndsWithAnOverflowAndTakesEventsAgainWhenItIsRead) {
  const std::size_t limit = systemsQueueLimit();
  ASSERT_GT(limit, 0u);
  compare([limit](auto& steps) {
    steps.makeDirectories("/a");
    steps.watch("/a");
    for (std::size_t i = 0; i <= limit + 2; ++i) steps.write(i % 2 == 0 ? "/a/x" : "/a/y", "");
    steps.readEvents();
    steps.write("/a/x", "");
  });
}

TEST(FilesTest, PathsAreWalkedComponentByComponent) {
  compare([](auto& steps) {
    steps.makeDirectories("/d/e");
    steps.write("/f", "x");
    steps.makeLink("/n");
    for (const char* path : {"/d", "/d/", "//d//e/", "/d/../f", "/f", "/f/", "/f/x", "/f/..", "/n",
                             "/n/", "/n/x", "/none", "/none/../d", "/d/./e/../../f"}) {
      steps.examine(path);
    }
    steps.examine("/" + std::string(NAME_MAX, 'x'));
    steps.examine("/" + std::string(NAME_MAX + 1, 'x'));
  });
}

TEST(FilesTest, DirectoriesAreMadeOnceAndModesAreChanged) {
  compare([](auto& steps) {
    steps.makeDirectories("/d");
    steps.write("/f", "x");
    steps.makeLink("/n");
    for (const char* path : {"/d", "/d/e", "/d/e/", "/g/h", "/f", "/f/x", "/n", "/n/x"}) {
      steps.makeDirectory(path, 0700);
    }
    for (const char* path : {"/d", "/f", "/f/", "/n", "/none"}) {
      steps.changeMode(path, 0750);
      steps.examine(path);
    }
  });
}

}  // namespace
}  // namespace Zorbe::Test::Kernel
