// SPDX-License-Identifier: MIT
//
// What stays of registrations that were refused, replaced or ended.
#include <poll.h>

#include <cerrno>

#include "support/descriptor_zero.h"
#include "unit/platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

class FdRegistrationTest : public LoopTest {
 protected:
  // The kernel goes on reporting a descriptor that was closed, for its duplicate.
  void strand() {
    Pair pair;
    FdProbe probe;
    probe.control->watch(pair.here);
    duplicate_ = ::fcntl(pair.here, F_DUPFD_CLOEXEC, 0);
    pair.makeReady();
    pair.closeHere();
  }
  ~FdRegistrationTest() override {
    if (duplicate_ >= 0) ::close(duplicate_);
  }

  static int epollDescriptor() {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry.path(), gone) == "anon_inode:[eventpoll]") {
        return std::stoi(entry.path().filename().string());
      }
    }
    return -1;
  }

 private:
  int duplicate_ = -1;
};

struct Poll {
  nfds_t count;
  int timeout;
};
std::vector<Poll> polls;

int notePoll(pollfd* entries, nfds_t count, int timeout) {
  const Fault::Bypass bypass;
  polls.push_back({count, timeout});
  return ::poll(entries, count, timeout);
}

}  // namespace

TEST_F(FdRegistrationTest, NoDescriptorIsRefusedWithTheReason) {
  FdProbe probe;
  EXPECT_EQ("FdControl::watch() fcntl(O_NONBLOCK) descriptor -1: Bad file descriptor",
            refusalOf([&] { probe.control->watch(-1); }));
}

TEST_F(FdRegistrationTest, ARefusedDescriptorIsNotWatchedLaterEither) {
  FdProbe probe;
  Pair pair;
  Fault::arm("epoll_ctl", 1, ENOMEM);
  EXPECT_NE("", refusalOf([&] { probe.control->watch(pair.here); }));
  pair.makeReady();
  strand();
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(1u, Fault::calls("epoll_create1")) << "everything has been registered again";
  EXPECT_FALSE(loop->turn(0));
  EXPECT_EQ(0, probe.events);
}

TEST_F(FdRegistrationTest, EachOfManyDescriptorsCanBeTakenOver) {
  Pair pairs[20];
  FdProbe earlier[40], later[40];
  const auto descriptor = [&pairs](int each) {
    return each % 2 == 0 ? pairs[each / 2].here : pairs[each / 2].there;
  };
  for (int each = 0; each < 40; ++each) earlier[each].control->watch(descriptor(each));
  for (int each = 0; each < 40; ++each) later[each].control->watch(descriptor(each));
  for (int each = 0; each < 40; ++each) {
    EXPECT_EQ(-1, earlier[each].control->fd());
    EXPECT_EQ(descriptor(each), later[each].control->fd());
  }
}

TEST_F(FdRegistrationTest, ARegistrationThatEndsWithinABatchIsNoReasonToRegisterAllAgain) {
  Pair pairs[2];
  FdProbe probes[2];
  for (const int each : {0, 1}) {
    probes[each].onEvent = [&, each](int) { probes[1 - each].control->unwatch(); };
    probes[each].control->watch(pairs[each].here);
    pairs[each].makeReady();
  }
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(1, probes[0].events + probes[1].events);
  EXPECT_EQ(0u, Fault::calls("epoll_create1"));
}

TEST_F(FdRegistrationTest, TheEpollDescriptorKeepsItsNumberWhenItIsReplaced) {
  const int before = epollDescriptor();
  strand();
  loop->turn(0);
  EXPECT_EQ(1u, Fault::calls("epoll_create1"));
  EXPECT_EQ(before, epollDescriptor());
  EXPECT_NE(0, ::fcntl(before, F_GETFD) & FD_CLOEXEC);
}

TEST_F(FdRegistrationTest, TheEpollDescriptorIsReplacedByWayOfDescriptorZeroToo) {
  const Zorbe::Test::DescriptorZero zero;
  strand();
  zero.free();
  loop->turn(0);
  EXPECT_EQ(1u, Fault::calls("epoll_create1"));
  loop->turn(0);
  EXPECT_EQ(1u, Fault::calls("epoll_create1"));
  EXPECT_FALSE(Zorbe::Test::DescriptorZero::isOpen());
}

TEST_F(FdRegistrationTest, AReportFromAnInterruptedTurnIsCheckedWithoutAnyWait) {
  Pair pairs[2];
  FdProbe probes[2];
  int events = 0;
  for (const int each : {0, 1}) {
    probes[each].onEvent = [&, each](int) {
      pairs[each].drain();
      if (events++ == 0) throw std::runtime_error("interrupts the turn");
    };
    probes[each].control->watch(pairs[each].here);
    pairs[each].makeReady();
  }
  EXPECT_THROW(loop->turn(0), std::runtime_error);
  polls.clear();
  Fault::divert("poll", notePoll);
  EXPECT_TRUE(loop->turn(0));
  EXPECT_EQ(2, events);
  ASSERT_EQ(1u, polls.size());
  EXPECT_EQ(1u, polls[0].count);
  EXPECT_EQ(0, polls[0].timeout);
}
