// SPDX-License-Identifier: MIT
//
// One inotify descriptor, yet every control as if it had its own.
#include <memory>

#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifySharingTest : public InotifyTest {};

}  // namespace

TEST_F(InotifySharingTest, TwoHundredControlsShareOneDescriptor) {
  std::vector<std::unique_ptr<InotifyProbe>> probes;
  for (int each = 0; each < 200; ++each) {
    probes.push_back(std::make_unique<InotifyProbe>());
    probes.back()->control->addWatch(directory.make(std::to_string(each)), IN_CREATE);
  }
  EXPECT_EQ(1u, inotifyDescriptors());
  for (int each = 0; each < 200; ++each) touch(directory.path + "/" + std::to_string(each) + "/x");
  EXPECT_TRUE(turnUntil([&] { return !probes.back()->reports.empty(); }));
  for (const auto& probe : probes) EXPECT_EQ(Reports{"changed x"}, probe->reports);
}

TEST_F(InotifySharingTest, TwoControlsOnOneDirectoryGetTheEventsOfTheirOwnMasks) {
  InotifyProbe creations, deletions, both;
  creations.control->addWatch(directory.path, IN_CREATE);
  deletions.control->addWatch(directory.path, IN_DELETE);
  both.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  touch(directory.path + "/one");
  erase(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"changed one"}, creations.reports);
  EXPECT_EQ(Reports{"changed one"}, deletions.reports);
  EXPECT_EQ((Reports{"changed one", "changed one"}), both.reports);
}

TEST_F(InotifySharingTest, TheKernelsMaskIsTheUnionOfWhatIsWanted) {
  InotifyProbe creations;
  auto deletions = std::make_unique<InotifyProbe>();
  creations.control->addWatch(directory.path, IN_CREATE);
  deletions->control->addWatch(directory.path, IN_DELETE);
  ASSERT_EQ(1u, kernelWatches().size());
  EXPECT_NE(std::string::npos, kernelWatches()[0].find(" mask:300 "));
  deletions.reset();
  ASSERT_EQ(1u, kernelWatches().size());
  EXPECT_NE(std::string::npos, kernelWatches()[0].find(" mask:100 "));
  creations.control->addWatch(directory.path, IN_ATTRIB);
  EXPECT_NE(std::string::npos, kernelWatches()[0].find(" mask:4 "));
}

TEST_F(InotifySharingTest, OneOfTwoLeavingADirectoryTakesNothingFromTheOther) {
  InotifyProbe stays, leaves;
  stays.control->addWatch(directory.path, IN_CREATE);
  leaves.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  leaves.control->removeWatch();
  touch(directory.path + "/one");
  erase(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"changed one"}, stays.reports);
  EXPECT_TRUE(leaves.reports.empty());
}

TEST_F(InotifySharingTest, LeavingASharedDirectoryThatWasRenamedWatchesNothingElse) {
  const std::string old = directory.make("d");
  InotifyProbe stays, leaves;
  stays.control->addWatch(old, IN_CREATE);
  leaves.control->addWatch(old, IN_CREATE | IN_DELETE);
  move(old, directory.path + "/e");
  directory.make("d");
  leaves.control->removeWatch();
  EXPECT_EQ(1u, kernelWatches().size());
  touch(directory.path + "/e/one");
  touch(old + "/two");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"changed one"}, stays.reports);
}

TEST_F(InotifySharingTest, IsNotNotifiedOfEventsThatItsWatchWasLeftBehind) {
  InotifyProbe first, second;
  first.onEvent = [&] { second.control->removeWatch(); };
  second.onEvent = [&] { first.control->removeWatch(); };
  first.control->addWatch(directory.path, IN_CREATE);
  second.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1u, first.reports.size() + second.reports.size());
}

TEST_F(InotifySharingTest, ACallbackMayDeleteItselfAndTheOthersOfItsDirectory) {
  std::vector<std::unique_ptr<InotifyProbe>> probes;
  int events = 0;
  for (int each = 0; each < 3; ++each) {
    probes.push_back(std::make_unique<InotifyProbe>([&] {
      ++events;
      probes.clear();
    }));
    probes.back()->control->addWatch(directory.path, IN_CREATE);
  }
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, events);
  EXPECT_TRUE(kernelWatches().empty());
}

TEST_F(InotifySharingTest, AMaskThatAsksForNothingIsRefusedAndHarmsNoOtherControl) {
  InotifyProbe probe, other;
  other.control->addWatch(directory.path, IN_CREATE);
  probe.control->addWatch(directory.path, 0);
  touch(directory.path + "/one");
  settle();
  EXPECT_EQ(Reports{"error inotify_add_watch() " + directory.path + ": Invalid argument"},
            probe.reports);
  EXPECT_EQ(Reports{"changed one"}, other.reports);
}

TEST_F(InotifySharingTest, AOneShotWatchEndsWithItsFirstEventAndEndsNoOther) {
  InotifyProbe once, always;
  once.control->addWatch(directory.path, IN_CREATE | IN_ONESHOT);
  always.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  settle();
  EXPECT_EQ(Reports{"changed one"}, once.reports);
  EXPECT_EQ((Reports{"changed one", "changed two"}), always.reports);
}

TEST_F(InotifySharingTest, UnlinkedFilesAreLeftOutOnlyWhereNoMaskAsksForThem) {
  InotifyProbe excluding;
  auto including = std::make_unique<InotifyProbe>();
  excluding.control->addWatch(directory.path, IN_MODIFY | IN_EXCL_UNLINK);
  including->control->addWatch(directory.path, IN_MODIFY);
  const std::string file = directory.path + "/one";
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  erase(file);
  EXPECT_EQ(1, ::write(fd, "x", 1));
  settle();
  EXPECT_EQ(Reports{"changed one"}, including->reports);
  including.reset();
  excluding.reports.clear();
  EXPECT_EQ(1, ::write(fd, "x", 1));
  settle();
  EXPECT_TRUE(excluding.reports.empty());
  ::close(fd);
}

TEST_F(InotifySharingTest, AnUnlinkedFileIsReportedToThoseWhoAskForItInAnyOrder) {
  InotifyProbe including, excluding;
  including.control->addWatch(directory.path, IN_MODIFY);
  excluding.control->addWatch(directory.path, IN_MODIFY | IN_EXCL_UNLINK);
  const std::string file = directory.path + "/one";
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  erase(file);
  EXPECT_EQ(1, ::write(fd, "x", 1));
  settle();
  EXPECT_EQ(Reports{"changed one"}, including.reports);
  ::close(fd);
}

TEST_F(InotifySharingTest, TheKernelsMaskIsNarrowedThroughALinkToo) {
  const std::string link = directory.path + "/link", place = directory.make("place");
  ASSERT_EQ(0, ::symlink(place.c_str(), link.c_str()));
  InotifyProbe stays;
  auto leaves = std::make_unique<InotifyProbe>();
  stays.control->addWatch(link, IN_CREATE | IN_ATTRIB);
  leaves->control->addWatch(link, IN_DELETE);
  stays.control->addWatch(link, IN_CREATE);
  ASSERT_EQ(1u, kernelWatches().size());
  EXPECT_NE(std::string::npos, kernelWatches()[0].find(" mask:300 "));
  leaves.reset();
  ASSERT_EQ(1u, kernelWatches().size());
  EXPECT_NE(std::string::npos, kernelWatches()[0].find(" mask:100 "));
}
