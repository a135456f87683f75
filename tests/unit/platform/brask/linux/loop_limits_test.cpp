// SPDX-License-Identifier: MIT
//
// What the loop does when the kernel's limits are reached, and when a file
// system goes: descriptors, inotify's queue, instances and watches, unmount.
#include <sched.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/un.h>

#include <fstream>
#include <memory>
#include <thread>

#include "fault/fault.h"
#include "support/child_process.h"
#include "support/limits.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;
using Zorbe::Test::NoDescriptors;
using Zorbe::Test::processorSeconds;
using Zorbe::Test::writeSetting;

namespace {

using Reports = std::vector<std::string>;

// A listening socket with clients that wait to be accepted.
class LoopLimitsTest : public LoopTest {
 protected:
  ~LoopLimitsTest() override {
    acceptor.reset();
    for (const int fd : opened) ::close(fd);
  }

  static int seqpacket() { return ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0); }

  void listenWithClients(int clients) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "brask-loop-" + std::to_string(::getpid());
    name.copy(address.sun_path + 1, name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const auto* where = reinterpret_cast<const sockaddr*>(&address);
    const int listener = keep(seqpacket());
    ASSERT_EQ(0, ::bind(listener, where, size));
    ASSERT_EQ(0, ::listen(listener, clients));
    acceptor = std::make_unique<FdProbe>([this](int fd) { accept(fd); });
    acceptor->control->watch(listener);
    ASSERT_EQ(0, ::connect(keep(seqpacket()), where, size));
    EXPECT_TRUE(loop->turn(0)) << "accepting works while there are descriptors";
    EXPECT_EQ(1, accepted);
    acceptor->events = accepted = 0;
    for (int each = 0; each < clients; ++each) {
      ASSERT_EQ(0, ::connect(keep(seqpacket()), where, size));
    }
  }

  void accept(int listener) {
    const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
      ++accepted;
      opened.push_back(fd);
    } else {
      EXPECT_EQ(EMFILE, errno);
    }
  }

  int keep(int fd) {
    opened.push_back(fd);
    return fd;
  }

  std::vector<int> opened;
  std::unique_ptr<FdProbe> acceptor;
  int accepted = 0;
};

// Watches a directory in a namespace where the user's limit `setting` is 0, and
// returns what was reported to the control.
std::string watchWithout(const std::string& setting) {
  return Zorbe::Test::resultInChild([&]() -> std::string {
    if (::unshare(CLONE_NEWUSER) != 0) return "skip: no user namespace";
    if (!writeSetting("/proc/sys/user/" + setting, "0")) return "skip: cannot set " + setting;
    Brask::Linux::EventLoop loop;
    InotifyProbe probe;
    probe.control->addWatch("/tmp", IN_CREATE);
    loop.turn(0);
    return probe.reports.empty() ? "reports nothing" : probe.reports[0];
  });
}

void expectRefusal(const std::string& setting, const std::string& text) {
  const std::string result = watchWithout(setting);
  if (result.rfind("skip", 0) == 0) GTEST_SKIP() << result;
  EXPECT_EQ(text, result);
}

}  // namespace

TEST_F(LoopLimitsTest, AListenerWithoutDescriptorsLeftDoesNotSpin) {
  listenWithClients(3);
  NoDescriptors exhausted;
  const auto start = Clock::now();
  const double before = processorSeconds();
  while (secondsSince(start) < 0.5) loop->turn(0.5);
  EXPECT_LT(processorSeconds() - before, 0.05 * secondsSince(start));
  EXPECT_LT(acceptor->events, 100);
  EXPECT_GT(acceptor->events, 0);
  EXPECT_EQ(0, accepted);
}

TEST_F(LoopLimitsTest, AListenerContinuesWhenThereAreDescriptorsAgain) {
  listenWithClients(3);
  NoDescriptors exhausted;
  for (int turns = 0; turns < 50; ++turns) loop->turn(0.002);
  EXPECT_EQ(0, accepted);
  exhausted.allow();
  while (accepted < 3) ASSERT_TRUE(loop->turn(1.0)) << "not within a second";
}

TEST_F(LoopLimitsTest, AListenerContinuesAtOnceWhenAWatchedDescriptorGoes) {
  auto watched = std::make_unique<Pair>();
  FdProbe probe;
  probe.control->watch(watched->here);
  listenWithClients(3);
  NoDescriptors exhausted;
  for (int turns = 0; turns < 30; ++turns) loop->turn(0);
  const int eventsBefore = acceptor->events;
  EXPECT_FALSE(loop->turn(0)) << "paused";
  watched->closeHere();
  probe.control->unwatch();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(eventsBefore + 1, acceptor->events);
  EXPECT_EQ(1, accepted);
}

TEST_F(LoopLimitsTest, APausedListenerCanBeUnwatchedAndWatchedAgain) {
  listenWithClients(1);
  NoDescriptors exhausted;
  for (int turns = 0; turns < 30; ++turns) loop->turn(0);
  const int listener = acceptor->control->fd();
  acceptor->control->unwatch();
  exhausted.allow();
  acceptor->control->watch(listener);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, accepted);
}

TEST_F(LoopLimitsTest, ABusyListenerIsNotPausedWhileThereAreDescriptors) {
  listenWithClients(100);
  for (int turns = 1; turns <= 100; ++turns) {
    EXPECT_TRUE(loop->turn(0));
    EXPECT_EQ(turns, accepted);
  }
}

TEST_F(LoopLimitsTest, ThePauseOfAListenerLeavesOtherCallbacksAlone) {
  Pair pair;
  FdProbe other([&](int) { pair.drain(); });
  other.control->watch(pair.here);
  listenWithClients(1);
  NoDescriptors exhausted;
  for (int turns = 0; turns < 30; ++turns) loop->turn(0);
  pair.makeReady();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, other.events);
}

TEST_F(LoopLimitsTest, APausedListenerIsNotifiedThatItHasBeenShutDown) {
  listenWithClients(1);
  NoDescriptors exhausted;
  for (int turns = 0; turns < 30; ++turns) loop->turn(0);
  const int eventsBefore = acceptor->events;
  ASSERT_EQ(0, ::shutdown(acceptor->control->fd(), SHUT_RDWR));
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(eventsBefore + 1, acceptor->events);
}

TEST_F(LoopLimitsTest, AListenerThatContinuesIsNotLookedAfterAnyMore) {
  Pair pairs[2];
  FdProbe ended, stays;
  ended.control->watch(pairs[0].here);
  stays.control->watch(pairs[1].here);
  listenWithClients(1);
  NoDescriptors exhausted;
  for (int turns = 0; turns < 30; ++turns) loop->turn(0);
  exhausted.allow();
  ended.control->unwatch();
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, accepted);
  const unsigned looks = Fault::calls("eventfd");
  EXPECT_FALSE(loop->turn(0.2));
  EXPECT_EQ(looks, Fault::calls("eventfd"));
}

TEST_F(LoopLimitsTest, AnOverflowOfTheInotifyQueueIsReportedToEveryControl) {
  Directory directory;
  InotifyProbe busy, silent, none;
  const std::string doomed = directory.make("doomed");
  busy.control->addWatch(directory.path, IN_MOVED_FROM | IN_MOVED_TO);
  silent.control->addWatch(doomed, IN_CREATE);
  int room = 0;
  ASSERT_TRUE(std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> room);
  const std::string ends[] = {directory.path + "/a", directory.path + "/b"};
  touch(ends[0]);
  for (int move = 0; move <= room / 2 + 1; ++move) {
    ASSERT_EQ(0, ::rename(ends[move % 2].c_str(), ends[1 - move % 2].c_str()));
  }
  ASSERT_EQ(0, ::rmdir(doomed.c_str()));  // its end is among what the queue has no room for
  settle();
  const std::string overflow =
      "error inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the "
      "limit)";
  EXPECT_EQ(1, std::count(busy.reports.begin(), busy.reports.end(), overflow));
  EXPECT_EQ(static_cast<size_t>(room) + 1, busy.reports.size());
  EXPECT_EQ((Reports{overflow, "deleted"}), silent.reports);
  EXPECT_TRUE(none.reports.empty());
}

TEST(LoopWithoutLimitsTest, ARefusedInotifyInstanceNamesTheSettingToRaise) {
  expectRefusal(
      "max_inotify_instances",
      "error inotify_init1() /tmp: Too many open files (raise fs.inotify.max_user_instances, or "
      "the process's limit of open files)");
}

TEST(LoopWithoutLimitsTest, ARefusedInotifyWatchNamesTheSettingToRaise) {
  expectRefusal("max_inotify_watches",
                "error inotify_add_watch() /tmp: No space left on device (raise "
                "fs.inotify.max_user_watches)");
}

TEST(LoopWithoutLimitsTest, AnUnmountEndsTheWatchesOnceEach) {
  Directory directory;
  const std::string result = Zorbe::Test::resultInChild([&]() -> std::string {
    const int namespaces = ::geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
    if (::unshare(namespaces) != 0) return "skip: no mount namespace";
    if (::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", directory.path.c_str(), "tmpfs", 0, nullptr) != 0) {
      return "skip: cannot mount";
    }
    Brask::Linux::EventLoop loop;
    InotifyProbe one, two;
    one.control->addWatch(directory.path, IN_CREATE);
    two.control->addWatch(directory.path, IN_DELETE_SELF | IN_MOVE_SELF);
    if (::umount(directory.path.c_str()) != 0) return "cannot unmount";
    while (loop.turn(0)) {
    }
    std::string all;
    for (const InotifyProbe* probe : {&one, &two}) {
      for (const std::string& text : probe->reports) all += text + ";";
    }
    return all;
  });
  if (result.rfind("skip", 0) == 0) GTEST_SKIP() << result;
  EXPECT_EQ("deleted;deleted;", result);
}

// In this process, but on a thread with a view of the mounts of its own.
TEST(LoopWithoutLimitsTest, AWatcherOfAnUnmountedDirectoryDoesNotFollowItsPath) {
  Directory directory;
  std::string skipped;
  Reports outerTold, innerTold;
  std::thread([&] {
    if (::unshare(CLONE_FS | CLONE_NEWNS) != 0 ||
        ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", directory.path.c_str(), "tmpfs", 0, nullptr) != 0) {
      skipped = "cannot mount";
      return;
    }
    Brask::Linux::EventLoop loop;
    InotifyProbe outer, inner;
    outer.control->addWatch(directory.path, IN_DELETE);
    inner.control->addWatch(directory.make("leaf"), IN_CREATE);
    EXPECT_EQ(0, ::umount(directory.path.c_str()));
    while (loop.turn(0)) {
    }
    outerTold = outer.reports;
    innerTold = inner.reports;
  }).join();
  if (!skipped.empty()) GTEST_SKIP() << skipped;
  EXPECT_EQ(Reports{"deleted"}, outerTold);
  EXPECT_EQ(Reports{"deleted"}, innerTold);
}
