// SPDX-License-Identifier: MIT
//
// InotifyControl.
#include "conformance/fixture.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

namespace Zorbe::Conformance {
namespace {

using Reports = std::vector<std::string>;

class WatchConformance : public LoopConformance {
 protected:
  std::string inside(const std::string& name) const { return directory_.path + "/" + name; }

  static void erase(const std::string& path) { ASSERT_EQ(0, ::unlink(path.c_str())) << path; }
  static void remove(const std::string& path) { ASSERT_EQ(0, ::rmdir(path.c_str())) << path; }
  static void move(const std::string& from, const std::string& to) {
    ASSERT_EQ(0, ::rename(from.c_str(), to.c_str())) << from;
  }

  static bool received(const InotifyProbe& probe, const std::string& report) {
    return std::count(probe.reports.begin(), probe.reports.end(), report) > 0;
  }
  static bool failed(const InotifyProbe& probe) {
    return std::any_of(probe.reports.begin(), probe.reports.end(), [](const std::string& report) {
      return report.rfind("error ", 0) == 0 && report.size() > sizeof "error";
    });
  }

  // When the watch of the probe ends, it watches its path again, as a client does.
  static void keepWatching(InotifyProbe& probe, const std::string& path, uint32_t mask) {
    probe.onEvent = [&probe, path, mask] {
      if (probe.reports.back() == "deleted") probe.control->addWatch(path, mask);
    };
    probe.control->addWatch(path, mask);
  }

  Directory directory_;
  InotifyProbe probe_, another_;
};

size_t maxQueuedEvents() {
  size_t most = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
  return most;
}

}  // namespace

TEST_F(WatchConformance, ReportsTheNamesOfEntriesInTheOrderOfTheirChanges) {
  probe_.control->addWatch(directory_.path, IN_CLOSE_WRITE | IN_DELETE);
  touch(inside("one"));
  touch(inside("two"));
  erase(inside("one"));
  settle();
  EXPECT_EQ((Reports{"changed one", "changed two", "changed one"}), probe_.reports);
}

TEST_F(WatchConformance, ReportsEntriesThatAreMoved) {
  const std::string elsewhere = directory_.make("elsewhere");
  probe_.control->addWatch(directory_.path, IN_MOVED_FROM | IN_MOVED_TO);
  touch(elsewhere + "/one");
  move(elsewhere + "/one", inside("in"));
  move(inside("in"), elsewhere + "/out");
  settle();
  EXPECT_EQ((Reports{"changed in", "changed in"}), probe_.reports);
}

TEST_F(WatchConformance, ReportsNothingThatTheMaskDoesNotAskFor) {
  probe_.control->addWatch(directory_.path, IN_DELETE);
  touch(inside("one"));
  settle();
  EXPECT_EQ(Reports{}, probe_.reports);
}

TEST_F(WatchConformance, ReportsTheWatchedPathWhereAnEventHasNoName) {
  probe_.control->addWatch(directory_.path, IN_ATTRIB);
  ASSERT_EQ(0, ::chmod(directory_.path.c_str(), 0750));
  settle();
  EXPECT_EQ(Reports{"changed " + directory_.path}, probe_.reports);
}

TEST_F(WatchConformance, ReportsTheEndOnceAfterTheChanges) {
  const std::string path = directory_.make("removed");
  probe_.control->addWatch(path, IN_DELETE);
  touch(path + "/one");
  erase(path + "/one");
  remove(path);
  settle();
  EXPECT_EQ((Reports{"changed one", "deleted"}), probe_.reports);
}

TEST_F(WatchConformance, ReportsThatTheWatchedDirectoryWasMoved) {
  const std::string path = directory_.make("moved");
  probe_.control->addWatch(path, IN_DELETE_SELF | IN_MOVE_SELF | IN_CREATE);
  move(path, inside("elsewhere"));
  settle();
  EXPECT_TRUE(received(probe_, "deleted") || received(probe_, "changed " + path));
}

TEST_F(WatchConformance, ReportsAPathThatCannotBeWatched) {
  probe_.control->addWatch(inside("missing"), IN_CREATE);
  settle();
  EXPECT_EQ(1u, probe_.reports.size());
  EXPECT_TRUE(failed(probe_));
}

TEST_F(WatchConformance, RefusesAFileWhereTheMaskAsksForADirectory) {
  touch(inside("file"));
  probe_.control->addWatch(inside("file"), IN_ATTRIB | IN_ONLYDIR);
  settle();
  EXPECT_TRUE(failed(probe_));
}

TEST_F(WatchConformance, AddWatchCallsNoHandler) {
  touch(inside("one"));
  probe_.control->addWatch(inside("missing"), IN_CREATE);
  another_.control->addWatch(directory_.path, IN_CREATE);
  EXPECT_EQ(Reports{}, probe_.reports);
  EXPECT_EQ(Reports{}, another_.reports);
}

TEST_F(WatchConformance, AnotherPathReplacesTheFirst) {
  const std::string first = directory_.make("first"), second = directory_.make("second");
  probe_.control->addWatch(first, IN_CREATE);
  probe_.control->addWatch(second, IN_CREATE);
  touch(first + "/unseen");
  touch(second + "/seen");
  settle();
  EXPECT_EQ(Reports{"changed seen"}, probe_.reports);
}

TEST_F(WatchConformance, WatchingThePathAgainInTheHandlerLosesNoEvent) {
  probe_.onEvent = [this] { probe_.control->addWatch(directory_.path, IN_CREATE); };
  probe_.control->addWatch(directory_.path, IN_CREATE);
  touch(inside("one"));
  touch(inside("two"));
  settle();
  EXPECT_EQ((Reports{"changed one", "changed two"}), probe_.reports);
}

TEST_F(WatchConformance, EachControlOfADirectoryGetsTheEventsOfItsOwnMask) {
  probe_.control->addWatch(directory_.path, IN_CREATE);
  another_.control->addWatch(directory_.path, IN_DELETE);
  touch(inside("one"));
  touch(inside("two"));
  erase(inside("two"));
  settle();
  EXPECT_EQ((Reports{"changed one", "changed two"}), probe_.reports);
  EXPECT_EQ(Reports{"changed two"}, another_.reports);
}

TEST_F(WatchConformance, AControlThatEndsTakesNothingFromTheOthersOfItsDirectory) {
  auto deleted = std::make_unique<InotifyProbe>();
  for (InotifyProbe* const probe : {&probe_, &another_, deleted.get()}) {
    probe->control->addWatch(directory_.path, IN_CREATE);
  }
  another_.control->addWatch(directory_.make("elsewhere"), IN_CREATE);
  deleted.reset();
  settle();
  probe_.reports.clear();
  touch(inside("one"));
  settle();
  EXPECT_EQ(Reports{"changed one"}, probe_.reports);
}

TEST_F(WatchConformance, ReportsNothingFromBeforeTheWatch) {
  another_.control->addWatch(directory_.path, IN_CREATE);
  touch(inside("before"));
  probe_.control->addWatch(directory_.path, IN_CREATE);
  touch(inside("after"));
  settle();
  EXPECT_EQ(Reports{"changed after"}, probe_.reports);
}

TEST_F(WatchConformance, WatchesADirectoryThatTheHandlerOfItsEndMakesAgain) {
  const std::string path = directory_.make("again");
  probe_.onEvent = [this, path] {
    if (probe_.reports.back() != "deleted") return;
    directory_.make("again");
    probe_.control->addWatch(path, IN_CREATE);
  };
  probe_.control->addWatch(path, IN_CREATE);
  remove(path);
  settle();
  touch(path + "/one");
  settle();
  EXPECT_EQ((Reports{"deleted", "changed one"}), probe_.reports);
}

TEST_F(WatchConformance, AReplacedDirectoryIsWatchedOrItsEndReported) {
  const std::string path = directory_.make("again");
  keepWatching(probe_, path, IN_CREATE);
  remove(path);
  directory_.make("again");
  settle();
  touch(path + "/one");
  settle();
  EXPECT_TRUE(received(probe_, "changed one"));
}

// The controls of the library: one for a directory and one for an entry in it.
TEST_F(WatchConformance, AReplacedParentIsWatchedOrItsEndReported) {
  const std::string path = directory_.make("again"), entry = directory_.make("again/entry");
  keepWatching(probe_, path, IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE);
  keepWatching(another_, entry, IN_CLOSE_WRITE | IN_DELETE);
  remove(entry);
  remove(path);
  directory_.make("again");
  directory_.make("again/entry");
  settle();
  touch(entry + "/one");
  touch(path + "/one");
  erase(path + "/one");
  settle();
  EXPECT_TRUE(received(another_, "changed one"));
  EXPECT_TRUE(received(probe_, "changed one"));
}

TEST_F(WatchConformance, ReportsThatEventsWereLost) {
  constexpr size_t kMost = 100000;
  const size_t most = maxQueuedEvents();
  if (most > kMost) GTEST_SKIP() << "the queue of the kernel holds " << most << " events";
  touch(inside("one"));
  for (InotifyProbe* const probe : {&probe_, &another_}) {
    probe->control->addWatch(directory_.path, IN_MOVED_FROM | IN_MOVED_TO);
  }
  for (size_t events = 0; events <= most + 4; events += 4) {
    move(inside("one"), inside("two"));
    move(inside("two"), inside("one"));
  }
  EXPECT_TRUE(turnUntil([this] { return failed(probe_) && failed(another_); }));
}

TEST_F(WatchConformance, RemoveWatchEndsTheEvents) {
  EXPECT_NO_THROW(probe_.control->removeWatch());
  probe_.control->addWatch(directory_.path, IN_CREATE);
  touch(inside("one"));
  probe_.control->removeWatch();
  touch(inside("two"));
  settle();
  EXPECT_EQ(Reports{}, probe_.reports);
}

TEST_F(WatchConformance, ReturnsThePathOfTheLastWatch) {
  EXPECT_EQ("", probe_.control->path());
  probe_.control->addWatch(directory_.path, IN_CREATE);
  EXPECT_EQ(directory_.path, probe_.control->path());
  probe_.control->addWatch(inside("missing"), IN_CREATE);
  EXPECT_EQ(inside("missing"), probe_.control->path());
}

}  // namespace Zorbe::Conformance
