// SPDX-License-Identifier: MIT
//
// Watched paths: one inotify descriptor, yet every control as if it had its own.
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>

#include <fstream>
#include <memory>

#include "platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

using Told = std::vector<std::string>;

class InotifyControlTest : public LoopTest {
 protected:
  static void remove(const std::string& path) { ASSERT_EQ(0, ::rmdir(path.c_str())) << path; }
  static void erase(const std::string& path) { ASSERT_EQ(0, ::unlink(path.c_str())) << path; }
  static void move(const std::string& from, const std::string& to) {
    ASSERT_EQ(0, ::rename(from.c_str(), to.c_str())) << from;
  }

  // The kernel's own list of what is watched: one line a watch.
  static std::vector<std::string> kernelWatches() {
    std::vector<std::string> watches;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
      std::ifstream info(entry.path());
      for (std::string line; std::getline(info, line);) {
        if (line.rfind("inotify wd:", 0) == 0) watches.push_back(line);
      }
    }
    return watches;
  }

  static size_t inotifyDescriptors() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry.path(), gone) == "anon_inode:inotify") ++count;
    }
    return count;
  }

  Directory directory;
};

}  // namespace

TEST_F(InotifyControlTest, ReportsTheNamesOfWhatTheMaskAsksForInOrder) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  touch(directory.path + "/one");
  touch(directory.path + "/a-name-that-fits-no-small-string-buffer");
  erase(directory.path + "/one");
  EXPECT_TRUE(probe.told.empty());
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Told{"changed one", "changed a-name-that-fits-no-small-string-buffer", "changed one"}),
            probe.told);
}

TEST_F(InotifyControlTest, ReportsNothingThatTheMaskDoesNotAskFor) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_DELETE);
  touch(directory.path + "/one");
  EXPECT_FALSE(readable(loop->fd()));
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(InotifyControlTest, KnowsTheLastPathAskedFor) {
  InotifyProbe probe;
  EXPECT_EQ("", probe.control->path());
  probe.control->addWatch(directory.path, IN_DELETE);
  EXPECT_EQ(directory.path, probe.control->path());
  probe.control->removeWatch();
  EXPECT_EQ(directory.path, probe.control->path());
  probe.control->addWatch("/nonexistent", IN_DELETE);
  EXPECT_EQ("/nonexistent", probe.control->path());
}

TEST_F(InotifyControlTest, AnEventWithoutANameReportsTheWatchedPath) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_ATTRIB);
  ASSERT_EQ(0, ::chmod(directory.path.c_str(), 0750));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Told{"changed " + directory.path}, probe.told);
}

TEST_F(InotifyControlTest, RemoveWatchAndDeletionEndTheKernelsWatch) {
  InotifyProbe probe;
  auto deleted = std::make_unique<InotifyProbe>();
  probe.control->addWatch(directory.path, IN_CREATE);
  deleted->control->addWatch(directory.make("other"), IN_CREATE);
  EXPECT_EQ(2u, kernelWatches().size());
  touch(directory.path + "/before");
  probe.control->removeWatch();
  probe.control->removeWatch();
  deleted.reset();
  EXPECT_TRUE(kernelWatches().empty());
  EXPECT_FALSE(loop->turn(0));
  EXPECT_TRUE(probe.told.empty());
}

TEST_F(InotifyControlTest, TwoHundredControlsShareOneDescriptor) {
  std::vector<std::unique_ptr<InotifyProbe>> probes;
  for (int each = 0; each < 200; ++each) {
    probes.push_back(std::make_unique<InotifyProbe>());
    probes.back()->control->addWatch(directory.make(std::to_string(each)), IN_CREATE);
  }
  EXPECT_EQ(1u, inotifyDescriptors());
  for (int each = 0; each < 200; ++each) touch(directory.path + "/" + std::to_string(each) + "/x");
  EXPECT_TRUE(turnUntil([&] { return !probes.back()->told.empty(); }));
  for (const auto& probe : probes) EXPECT_EQ(Told{"changed x"}, probe->told);
}

TEST_F(InotifyControlTest, TwoControlsOnOneDirectoryGetTheEventsOfTheirOwnMasks) {
  InotifyProbe creations, deletions, both;
  creations.control->addWatch(directory.path, IN_CREATE);
  deletions.control->addWatch(directory.path, IN_DELETE);
  both.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  touch(directory.path + "/one");
  erase(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Told{"changed one"}, creations.told);
  EXPECT_EQ(Told{"changed one"}, deletions.told);
  EXPECT_EQ((Told{"changed one", "changed one"}), both.told);
}

TEST_F(InotifyControlTest, TheKernelsMaskIsTheUnionOfWhatIsWanted) {
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

TEST_F(InotifyControlTest, OneOfTwoLeavingADirectoryTakesNothingFromTheOther) {
  InotifyProbe stays, leaves;
  stays.control->addWatch(directory.path, IN_CREATE);
  leaves.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  leaves.control->removeWatch();
  touch(directory.path + "/one");
  erase(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Told{"changed one"}, stays.told);
  EXPECT_TRUE(leaves.told.empty());
}

TEST_F(InotifyControlTest, LeavingASharedDirectoryThatWasRenamedWatchesNothingElse) {
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
  EXPECT_EQ(Told{"changed one"}, stays.told);
}

TEST_F(InotifyControlTest, AnotherDirectoryTakesThePlaceOfTheOld) {
  const std::string first = directory.make("first"), second = directory.make("second");
  InotifyProbe probe;
  probe.control->addWatch(first, IN_CREATE);
  touch(first + "/left-behind");
  probe.control->addWatch(second, IN_CREATE);
  touch(first + "/unseen");
  touch(second + "/seen");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Told{"changed seen"}, probe.told);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyControlTest, WatchingTheSameDirectoryAgainLosesNoEvent) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/before");
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/after");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Told{"changed before", "changed after"}), probe.told);
}

TEST_F(InotifyControlTest, WatchingTheSameDirectoryAgainInACallbackLosesNoEvent) {
  InotifyProbe probe;
  probe.onEvent = [&] { probe.control->addWatch(directory.path, IN_CREATE); };
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Told{"changed one", "changed two"}), probe.told);
}

TEST_F(InotifyControlTest, AnotherMaskOnTheSameDirectoryTakesThePlaceOfTheOld) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  probe.control->addWatch(directory.path, IN_DELETE);
  touch(directory.path + "/two");
  erase(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Told{"changed one"}, probe.told) << "only the deletion";
}

TEST_F(InotifyControlTest, IsNotToldOfEventsThatItsWatchWasLeftBehind) {
  InotifyProbe first, second;
  first.onEvent = [&] { second.control->removeWatch(); };
  second.onEvent = [&] { first.control->removeWatch(); };
  first.control->addWatch(directory.path, IN_CREATE);
  second.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1u, first.told.size() + second.told.size());
}

TEST_F(InotifyControlTest, ACallbackMayDeleteItselfAndTheOthersOfItsDirectory) {
  std::vector<std::unique_ptr<InotifyProbe>> probes;
  int told = 0;
  for (int each = 0; each < 3; ++each) {
    probes.push_back(std::make_unique<InotifyProbe>([&] {
      ++told;
      probes.clear();
    }));
    probes.back()->control->addWatch(directory.path, IN_CREATE);
  }
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1, told);
  EXPECT_TRUE(kernelWatches().empty());
}

TEST_F(InotifyControlTest, WhatStaysGoodAfterItsControlWasDeleted) {
  struct Handler : Brask::Platform::InotifyHandler {
    void inotifyError(const std::string& text) override { keep(text); }
    void inotifyDeleted() override {}
    void inotifyChanged(const std::string& text) override { keep(text); }
    void keep(const std::string& text) {
      control.reset();
      what = text;
    }
    std::unique_ptr<Brask::Platform::InotifyControl> control;
    std::string what;
  } handler;
  handler.control.reset(Brask::Platform::getInotifyControl(&handler));
  handler.control->addWatch(directory.path, IN_ATTRIB);
  ASSERT_EQ(0, ::chmod(directory.path.c_str(), 0750));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(directory.path, handler.what);
}

TEST_F(InotifyControlTest, TheEndOfADirectoryIsToldOnceWhateverTheMask) {
  for (const uint32_t mask : {uint32_t{IN_CREATE}, uint32_t{IN_DELETE_SELF | IN_MOVE_SELF}}) {
    const std::string doomed = directory.make("doomed");
    InotifyProbe one, two;
    one.control->addWatch(doomed, mask);
    two.control->addWatch(doomed, IN_CREATE);
    remove(doomed);
    settle();
    EXPECT_EQ(Told{"deleted"}, one.told);
    EXPECT_EQ(Told{"deleted"}, two.told);
    EXPECT_TRUE(kernelWatches().empty());
  }
}

TEST_F(InotifyControlTest, ADirectoryCanBeWatchedAgainFromInotifyDeleted) {
  const std::string again = directory.make("again");
  InotifyProbe probe;
  probe.onEvent = [&] {
    if (probe.told.back() != "deleted") return;
    directory.make("again");
    probe.control->addWatch(again, IN_CREATE | IN_DELETE_SELF);
  };
  probe.control->addWatch(again, IN_CREATE | IN_DELETE_SELF);
  for (int round = 0; round < 3; ++round) {
    remove(again);
    settle();
  }
  touch(again + "/one");
  settle();
  EXPECT_EQ((Told{"deleted", "deleted", "deleted", "changed one"}), probe.told);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyControlTest, TheEndOfADirectoryThatIsWatchedAgainAlreadyIsNotTold) {
  const std::string again = directory.make("again");
  InotifyProbe probe;
  probe.control->addWatch(again, IN_CREATE);
  remove(again);
  directory.make("again");
  probe.control->addWatch(again, IN_CREATE);
  touch(again + "/one");
  settle();
  EXPECT_EQ(Told{"changed one"}, probe.told);
}

TEST_F(InotifyControlTest, AMoveEndsTheWatchOfThoseWhoAskedAndReportsNothingMore) {
  const std::string from = directory.make("from"), to = directory.path + "/to";
  InotifyProbe asked, unasked;
  asked.control->addWatch(from, IN_CREATE | IN_MOVE_SELF | IN_DELETE_SELF);
  unasked.control->addWatch(from, IN_CREATE);
  move(from, to);
  touch(to + "/one");
  settle();
  erase(to + "/one");
  remove(to);
  settle();
  EXPECT_EQ(Told{"deleted"}, asked.told);
  EXPECT_EQ((Told{"changed one", "deleted"}), unasked.told);
}

TEST_F(InotifyControlTest, AFailedWatchIsToldByALaterTurnWithPathAndReason) {
  InotifyProbe probe;
  probe.control->addWatch("/nonexistent/directory", IN_CREATE);
  EXPECT_TRUE(probe.told.empty());
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Told{"error inotify_add_watch() /nonexistent/directory: No such file or directory"},
            probe.told);
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(InotifyControlTest, AWatchThatFailsInACallbackIsToldByALaterTurn) {
  InotifyProbe probe;
  probe.onEvent = [&] {
    if (probe.told.size() < 3) probe.control->addWatch("/nonexistent", IN_CREATE);
  };
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  for (size_t turns = 1; turns <= 3; ++turns) {
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(turns, probe.told.size());
  }
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(InotifyControlTest, AFailedWatchLeavesTheControlWithoutAWatch) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  probe.control->addWatch("/nonexistent", IN_CREATE);
  touch(directory.path + "/two");
  settle();
  EXPECT_EQ(1u, probe.told.size());
  EXPECT_TRUE(kernelWatches().empty());
}

TEST_F(InotifyControlTest, AFailureThatHasBeenMendedOrEndedIsNotTold) {
  InotifyProbe mended, ended;
  auto deleted = std::make_unique<InotifyProbe>();
  for (InotifyProbe* probe : {&mended, &ended, deleted.get()}) {
    probe->control->addWatch("/nonexistent", IN_CREATE);
  }
  mended.control->addWatch(directory.path, IN_CREATE);
  ended.control->removeWatch();
  deleted.reset();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_TRUE(mended.told.empty());
}

TEST_F(InotifyControlTest, AMaskThatAsksForNothingIsRefusedAndHurtsNobody) {
  InotifyProbe probe, other;
  other.control->addWatch(directory.path, IN_CREATE);
  probe.control->addWatch(directory.path, 0);
  touch(directory.path + "/one");
  settle();
  EXPECT_EQ(Told{"error inotify_add_watch() " + directory.path + ": Invalid argument"}, probe.told);
  EXPECT_EQ(Told{"changed one"}, other.told);
}

TEST_F(InotifyControlTest, AOneShotWatchEndsWithItsFirstEventAndEndsNoOther) {
  InotifyProbe once, always;
  once.control->addWatch(directory.path, IN_CREATE | IN_ONESHOT);
  always.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  settle();
  EXPECT_EQ(Told{"changed one"}, once.told);
  EXPECT_EQ((Told{"changed one", "changed two"}), always.told);
}

TEST_F(InotifyControlTest, AddingToTheMaskKeepsWhatItAskedForBefore) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  probe.control->addWatch(directory.path, IN_DELETE | IN_MASK_ADD);
  touch(directory.path + "/one");
  erase(directory.path + "/one");
  settle();
  EXPECT_EQ(2u, probe.told.size());
}

TEST_F(InotifyControlTest, AnExceptionLosesNoEventOfTheBuffer) {
  InotifyProbe first, second;
  const auto throwTwice = [thrown = std::make_shared<int>(0)] {
    if (++*thrown <= 2) throw std::runtime_error("now");
  };
  first.onEvent = second.onEvent = throwTwice;
  first.control->addWatch(directory.path, IN_CREATE);
  second.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  for (int thrown = 0; thrown < 2; ++thrown) {
    EXPECT_THROW(loop->turn(0), std::runtime_error);
    EXPECT_TRUE(readable(loop->fd()));
  }
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Told{"changed one", "changed two"}), first.told);
  EXPECT_EQ((Told{"changed one", "changed two"}), second.told);
  EXPECT_FALSE(readable(loop->fd()));
}

TEST_F(InotifyControlTest, AnExceptionOutOfInotifyDeletedLosesNoneOfTheOthers) {
  const std::string doomed = directory.make("doomed");
  InotifyProbe probes[2];
  for (InotifyProbe& probe : probes) {
    probe.onEvent = [] { throw std::runtime_error("gone"); };
    probe.control->addWatch(doomed, IN_CREATE);
  }
  remove(doomed);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_FALSE(loop->turn(0));
  for (InotifyProbe& probe : probes) EXPECT_EQ(Told{"deleted"}, probe.told);
}

TEST_F(InotifyControlTest, AnExceptionOutOfInotifyErrorLosesNoneOfTheOthers) {
  InotifyProbe probes[2];
  for (InotifyProbe& probe : probes) {
    probe.onEvent = [] { throw std::runtime_error("failed"); };
    probe.control->addWatch("/nonexistent", IN_CREATE);
  }
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  EXPECT_FALSE(loop->turn(0));
  for (InotifyProbe& probe : probes) EXPECT_EQ(1u, probe.told.size());
}
