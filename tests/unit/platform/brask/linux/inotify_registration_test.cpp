// SPDX-License-Identifier: MIT
//
// Events belong to the registrations that existed when they happened.
#include "unit/platform/brask/linux/inotify_fixture.h"

using namespace LoopTesting;

namespace {

class InotifyRegistrationTest : public InotifyTest {
 protected:
  // Keeps the kernel's watch of the directory alive.
  InotifyRegistrationTest() { other.control->addWatch(directory.path, IN_CREATE | IN_ATTRIB); }

  InotifyProbe other, probe;
};

}  // namespace

TEST_F(InotifyRegistrationTest, WhatHappenedBeforeAControlJoinedIsNotItsOwn) {
  touch(directory.path + "/before");
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/after");
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(Reports{"changed after"}, probe.reports);
  EXPECT_EQ((Reports{"changed before", "changed after"}), other.reports);
}

TEST_F(InotifyRegistrationTest, WhatHappenedBeforeAControlCameBackIsNotItsOwn) {
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/one");
  probe.control->removeWatch();
  touch(directory.path + "/two");
  probe.control->addWatch(directory.path, IN_CREATE);
  touch(directory.path + "/three");
  settle();
  EXPECT_EQ(Reports{"changed three"}, probe.reports);
  EXPECT_EQ((Reports{"changed one", "changed two", "changed three"}), other.reports);
}

TEST_F(InotifyRegistrationTest, WhatHappenedWhileAControlWasElsewhereIsNotItsOwn) {
  const std::string elsewhere = directory.make("elsewhere");
  settle();
  probe.control->addWatch(directory.path, IN_CREATE);
  probe.control->addWatch(elsewhere, IN_CREATE);
  touch(directory.path + "/one");
  probe.control->addWatch(directory.path, IN_CREATE);
  settle();
  EXPECT_EQ(Reports{}, probe.reports);
}

TEST_F(InotifyRegistrationTest, AControlThatJoinsInACallbackIsNotReportedTheRestOfTheBatch) {
  other.onEvent = [&] {
    if (other.reports.size() != 1) return;
    touch(directory.path + "/three");
    probe.control->addWatch(directory.path, IN_CREATE);
    touch(directory.path + "/four");
  };
  touch(directory.path + "/one");
  touch(directory.path + "/two");
  settle();
  EXPECT_EQ((Reports{"changed one", "changed two", "changed three", "changed four"}),
            other.reports);
  EXPECT_EQ(Reports{"changed four"}, probe.reports);
}

// The kernel merges an event with an equal one that has not been read.
TEST_F(InotifyRegistrationTest, AnEventLikeOneFromBeforeIsNotLost) {
  ASSERT_EQ(0, ::chmod(directory.path.c_str(), 0750));
  probe.control->addWatch(directory.path, IN_ATTRIB);
  ASSERT_EQ(0, ::chmod(directory.path.c_str(), 0700));
  settle();
  EXPECT_EQ(Reports{"changed " + directory.path}, probe.reports);
  EXPECT_EQ(2u, other.reports.size());
}

TEST_F(InotifyRegistrationTest, TheEndOfAnEarlierWatchIsNotThatOfALaterOne) {
  const std::string again = directory.make("again");
  InotifyProbe stays;
  stays.control->addWatch(again, IN_CREATE);
  probe.control->addWatch(again, IN_CREATE);
  remove(again);
  directory.make("again");
  probe.control->addWatch(again, IN_CREATE);
  settle();
  EXPECT_EQ(Reports{}, probe.reports);
  EXPECT_EQ(Reports{"deleted"}, stays.reports);
}

TEST_F(InotifyRegistrationTest, WhatIsTakenFromTheKernelForALaterTurnShowsInTheDescriptor) {
  touch(directory.path + "/one");
  probe.control->addWatch(directory.path, IN_CREATE);
  EXPECT_TRUE(readable(loop->fd()));
  EXPECT_TRUE(loop->turn(kPatience)) << "at once";
  EXPECT_EQ(Reports{"changed one"}, other.reports);
  EXPECT_FALSE(readable(loop->fd()));
}

// A callback that makes events and takes them over each time is not all that runs.
TEST_F(InotifyRegistrationTest, ATurnEndsWhateverItsCallbacksCause) {
  other.onEvent = [&] {
    touch(directory.path + "/" + std::to_string(other.reports.size()));
    probe.control->removeWatch();
    probe.control->addWatch(directory.path, IN_CREATE);
  };
  touch(directory.path + "/first");
  for (size_t turns = 1; turns < 5; ++turns) {
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(turns, other.reports.size());
  }
}

TEST_F(InotifyRegistrationTest, WhatIsTakenOverIsKeptThroughManyTurns) {
  other.onEvent = [&] {
    probe.control->removeWatch();
    probe.control->addWatch(directory.path, IN_CREATE);
  };
  Reports expected;
  for (int each = 0; each < 3000; ++each) {
    const std::string name = std::to_string(each) + std::string(100, 'x');
    touch(directory.path + "/" + name);
    expected.push_back("changed " + name);
  }
  settle();
  EXPECT_EQ(expected, other.reports);
}

TEST_F(InotifyRegistrationTest, HoweverMuchHappenedBeforeAControlJoinedIsNotItsOwn) {
  constexpr size_t kMoreThanOneRead = 300;
  for (size_t each = 0; each < kMoreThanOneRead; ++each) {
    touch(directory.path + "/" + std::to_string(each) + std::string(240, 'x'));
  }
  probe.control->addWatch(directory.path, IN_CREATE);
  settle();
  EXPECT_EQ(Reports{}, probe.reports);
  EXPECT_EQ(kMoreThanOneRead, other.reports.size());
}

TEST_F(InotifyRegistrationTest, WhatComesWhileOtherEventsWaitIsKeptInItsOrder) {
  constexpr size_t kWaiting = 10, kAll = 1000;
  Reports expected;
  const auto make = [&] {
    if (expected.size() == kAll) return;
    const std::string name = std::to_string(expected.size()) + std::string(200, 'x');
    touch(directory.path + "/" + name);
    expected.push_back("changed " + name);
  };
  other.onEvent = [&] {
    make();
    probe.control->removeWatch();
    probe.control->addWatch(directory.path, IN_CREATE);
  };
  for (size_t each = 0; each < kWaiting; ++each) make();
  settle();
  EXPECT_EQ(expected, other.reports);
  EXPECT_EQ(Reports{}, probe.reports);
}
