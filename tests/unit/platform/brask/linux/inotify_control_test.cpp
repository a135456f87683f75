// SPDX-License-Identifier: MIT
//
// Watched paths: which events a control gets.
#include <memory>

#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyControlTest : public InotifyTest {
 protected:
  // For files that are made, and then with another mask; a file is made after each.
  void watchTwice(const InotifyProbe& probe, uint32_t mask) {
    probe.control->addWatch(directory.path, IN_CREATE);
    touch(directory.path + "/one");
    probe.control->addWatch(directory.path, mask);
    touch(directory.path + "/two");
  }
};

}  // namespace

TEST_F(InotifyControlTest, ReportsTheNamesOfWhatTheMaskAsksForInOrder) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  touch(directory.path + "/one");
  touch(directory.path + "/a-name-that-fits-no-small-string-buffer");
  erase(directory.path + "/one");
  EXPECT_TRUE(probe.reports.empty());
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(
      (Reports{"changed one", "changed a-name-that-fits-no-small-string-buffer", "changed one"}),
      probe.reports);
}

TEST_F(InotifyControlTest, ReportsNothingThatTheMaskDoesNotAskFor) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_DELETE);
  touch(directory.path + "/one");
  EXPECT_FALSE(readable(loop->fd()));
  EXPECT_FALSE(loop->turn(0));
}

TEST_F(InotifyControlTest, ReturnsTheLastPath) {
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
  EXPECT_EQ(Reports{"changed " + directory.path}, probe.reports);
}

TEST_F(InotifyControlTest, AnEventWithoutANameTakesNoneFromTheNext) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_ATTRIB | IN_CREATE);
  ASSERT_EQ(0, ::chmod(directory.path.c_str(), 0750));
  touch(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Reports{"changed " + directory.path, "changed one"}), probe.reports);
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
  EXPECT_TRUE(probe.reports.empty());
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
  EXPECT_EQ(Reports{"changed seen"}, probe.reports);
  EXPECT_EQ(1u, kernelWatches().size());
}

TEST_F(InotifyControlTest, WatchingTheSameDirectoryAgainLosesNoEvent) {
  InotifyProbe probe;
  watchTwice(probe, IN_CREATE);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Reports{"changed one", "changed two"}), probe.reports);
}

TEST_F(InotifyControlTest, WatchingTheSameDirectoryAgainInACallbackLosesNoEvent) {
  InotifyProbe probe;
  probe.onEvent = [&] { probe.control->addWatch(directory.path, IN_CREATE); };
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ((Reports{"changed one", "changed two"}), probe.reports);
}

TEST_F(InotifyControlTest, AnotherMaskOnTheSameDirectoryTakesThePlaceOfTheOld) {
  InotifyProbe probe;
  watchTwice(probe, IN_DELETE);
  erase(directory.path + "/one");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"changed one"}, probe.reports) << "only the deletion";
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
  } client;
  client.control.reset(Brask::Platform::getInotifyControl(&client));
  client.control->addWatch(directory.path, IN_ATTRIB);
  ASSERT_EQ(0, ::chmod(directory.path.c_str(), 0750));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(directory.path, client.what);
}

TEST_F(InotifyControlTest, AddingToTheMaskKeepsWhatItAskedForBefore) {
  InotifyProbe probe;
  probe.control->addWatch(directory.path, IN_CREATE);
  probe.control->addWatch(directory.path, IN_DELETE | IN_MASK_ADD);
  touch(directory.path + "/one");
  erase(directory.path + "/one");
  settle();
  EXPECT_EQ(2u, probe.reports.size());
}
