// SPDX-License-Identifier: MIT
//
// What a turn costs: system calls, allocations, and the number of descriptors
// that are watched but silent.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>

#include "platform/brask/linux/child_process.h"
#include "platform/brask/linux/loop_fixture.h"

using namespace LoopTesting;

namespace {

std::atomic<long> allocations{0};

void* allocate(size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) {
  return allocate(size);
}
void* operator new[](size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
  std::free(memory);
}

namespace {

constexpr int TURNS = 1000;

// Handlers that do nothing that costs anything by itself.
struct Reader : Brask::Platform::FdEventHandler {
  void fdEvent(int) override { ++events; }
  long events = 0;
  std::unique_ptr<Brask::Platform::FdControl> control{Brask::Platform::getFdControl(this)};
};

struct Ticker : Brask::Platform::TimeoutHandler {
  void timeout() override {
    if (++events == TURNS) Brask::Linux::EventLoop::current().stop();
    control->start(0.0);
  }
  long events = 0;
  std::unique_ptr<Brask::Platform::TimerControl> control{Brask::Platform::getTimerControl(this)};
};

struct Watcher : Brask::Platform::InotifyHandler {
  void inotifyError(const std::string&) override {}
  void inotifyDeleted() override {}
  void inotifyChanged(const std::string&) override { ++events; }
  long events = 0;
  std::unique_ptr<Brask::Platform::InotifyControl> control{
      Brask::Platform::getInotifyControl(this)};
};

class LoopCostTest : public LoopTest {
 protected:
  void turnOften(int turns = TURNS) {
    for (int each = 0; each < turns; ++each) loop->turn(0);
  }

  long allocationsOf(const std::function<void()>& work) {
    const long before = allocations.load();
    work();
    return allocations.load() - before;
  }
};

// Runs in the traced child, where the loop is the child's own.
struct Traced {
  Brask::Linux::EventLoop loop;
  Pair pair;
  Reader reader;
  Traced() {
    reader.control->watch(pair.here);
    pair.makeReady();
    loop.turn(0);
  }
};

class LoopSystemCallsTest : public ::testing::Test {
 protected:
  void count(const std::function<void()>& scenario) {
    if (!systemCallsOf(scenario, calls)) GTEST_SKIP() << "cannot trace a child";
  }

  // epoll_wait, whatever the C library makes of it.
  int waits() const { return of(SYS_epoll_wait) + of(SYS_epoll_pwait) + of(SYS_epoll_pwait2); }
  int of(uint64_t call) const {
    const auto found = calls.find(call);
    return found != calls.end() ? found->second : 0;
  }
  int all() const {
    int sum = 0;
    for (const auto& call : calls) sum += call.second;
    return sum;
  }

  SystemCalls calls;
};

// Descriptors that are watched and silent, and one that is always ready.
class Crowd {
 public:
  explicit Crowd(size_t silent) : ready_(::eventfd(1, EFD_CLOEXEC)) {
    readers_.reserve(silent + 1);
    for (size_t each = 0; each < silent; ++each) add(::eventfd(0, EFD_CLOEXEC));
    add(ready_);
  }
  ~Crowd() {
    readers_.clear();
    for (const int fd : fds_) ::close(fd);
  }

  long events() const { return readers_.back().events; }

 private:
  void add(int fd) {
    fds_.push_back(fd);
    readers_.emplace_back();
    readers_.back().control->watch(fd);
  }

  int ready_;
  std::vector<int> fds_;
  std::vector<Reader> readers_;
};

}  // namespace

TEST_F(LoopCostTest, ADescriptorEventAllocatesNothing) {
  Pair pair;
  Reader reader;
  reader.control->watch(pair.here);
  pair.makeReady();
  EXPECT_EQ(0, allocationsOf([this] { turnOften(); }));
  EXPECT_EQ(TURNS, reader.events);
}

TEST_F(LoopCostTest, ATimerEventAllocatesNothing) {
  Ticker immediate;
  Ticker moved;
  immediate.control->start(0.0);
  EXPECT_EQ(0, allocationsOf([&] {
              for (int each = 0; each < TURNS; ++each) {
                moved.control->start(100.0 + each);
                loop->turn(0);
              }
            }));
  EXPECT_EQ(TURNS, immediate.events);
}

TEST_F(LoopCostTest, AnInotifyEventAllocatesNothing) {
  Directory directory;
  Watcher watchers[2];
  for (Watcher& watcher : watchers)
    watcher.control->addWatch(directory.path, IN_CREATE | IN_ATTRIB);
  const std::string file = directory.path + "/" + std::string(200, 'x');
  touch(file);
  settle();
  for (int each = 0; each < 10; ++each) ::chmod(file.c_str(), each % 2 != 0 ? 0600 : 0640);
  ::chmod(directory.path.c_str(), 0750);
  EXPECT_EQ(0, allocationsOf([this] { settle(); }));
  EXPECT_GE(watchers[1].events, 3);
}

TEST_F(LoopSystemCallsTest, ATurnWithADescriptorEventIsOneWait) {
  count([] {
    Traced traced;
    mark();
    for (int each = 0; each < TURNS; ++each) traced.loop.turn(0);
    mark();
  });
  EXPECT_EQ(TURNS, waits());
  EXPECT_EQ(TURNS, all());
}

TEST_F(LoopSystemCallsTest, ATurnWithManyReadyDescriptorsIsOneWait) {
  count([] {
    Traced traced;
    Pair pairs[20];
    Reader readers[20];
    for (int each = 0; each < 20; ++each) {
      readers[each].control->watch(pairs[each].here);
      pairs[each].makeReady();
    }
    traced.loop.turn(0);
    mark();
    for (int each = 0; each < TURNS; ++each) traced.loop.turn(0);
    mark();
    if (readers[19].events != TURNS + 1) ::_exit(1);
  });
  EXPECT_EQ(TURNS, all());
}

TEST_F(LoopSystemCallsTest, ATurnWithARearmedZeroTimerIsOneWait) {
  count([] {
    Brask::Linux::EventLoop loop;
    Ticker ticker;
    ticker.control->start(0.0);
    mark();
    for (int each = 0; each < TURNS - 1; ++each) loop.turn(0);
    mark();
  });
  EXPECT_EQ(TURNS - 1, waits());
  EXPECT_EQ(TURNS - 1, all());
}

TEST_F(LoopSystemCallsTest, ARunWithARearmedZeroTimerIsOneWaitATurn) {
  count([] {
    Brask::Linux::EventLoop loop;
    Ticker ticker;
    ticker.control->start(0.0);
    mark();
    loop.run();
    mark();
  });
  EXPECT_EQ(TURNS, waits());
  EXPECT_LE(all(), TURNS + 2) << "the stop itself costs a write and a read";
}

TEST_F(LoopSystemCallsTest, ANestedLoopWithARearmedZeroTimerIsOneWaitATurn) {
  count([] {
    Brask::Linux::EventLoop loop;
    Ticker ticker;
    ticker.control->start(0.0);
    static_cast<void>(loop.fd());
    loop.turn(0);
    mark();
    for (int each = 0; each < TURNS - 2; ++each) loop.turn(0);
    mark();
  });
  EXPECT_EQ(TURNS - 2, all());
}

TEST_F(LoopSystemCallsTest, TimersBehindTheEarliestCostNoCall) {
  count([] {
    Brask::Linux::EventLoop loop;
    static_cast<void>(loop.fd());  // as strict as it gets: somebody polls the loop
    Ticker earliest, other;
    earliest.control->start(100.0);
    mark();
    for (int each = 0; each < TURNS; ++each) {
      other.control->start(200.0 + each);
      if (each % 2 == 0) other.control->cancel();
    }
    mark();
  });
  EXPECT_EQ(0, all());
}

TEST_F(LoopSystemCallsTest, CancellingATimerThatIsNotArmedCostsNoCall) {
  count([] {
    Traced traced;
    static_cast<void>(traced.loop.fd());
    Ticker ticker;
    mark();
    for (int each = 0; each < TURNS; ++each) ticker.control->cancel();
    mark();
  });
  EXPECT_EQ(0, all());
}

TEST_F(LoopSystemCallsTest, AnArmedTimerAddsNoCallToDescriptorEvents) {
  count([] {
    Traced traced;
    Ticker ticker;
    ticker.control->start(100.0);
    traced.loop.turn(0);
    mark();
    for (int each = 0; each < TURNS; ++each) traced.loop.turn(0);
    mark();
  });
  EXPECT_EQ(TURNS, all());
}

TEST_F(LoopSystemCallsTest, SilentDescriptorsAddNoCall) {
  count([] {
    Traced traced;
    Crowd crowd(500);
    traced.loop.turn(0);
    mark();
    for (int each = 0; each < TURNS; ++each) traced.loop.turn(0);
    mark();
  });
  EXPECT_EQ(TURNS, all());
}

TEST_F(LoopCostTest, TenThousandWatchedDescriptorsCostNoMoreThanTen) {
  rlimit before{};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before));
  rlimit raised = before;
  raised.rlim_cur = raised.rlim_max;
  if (raised.rlim_max < 10200) GTEST_SKIP() << "may not open 10,000 descriptors";
  ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &raised));
  const auto bestOf = [this](size_t silent) {
    const Crowd crowd(silent);
    double best = 1e9;
    for (int round = 0; round < 20; ++round) {
      const auto start = Clock::now();
      turnOften(500);
      best = std::min(best, secondsSince(start));
    }
    EXPECT_EQ(20 * 500, crowd.events());
    return best;
  };
  const double few = bestOf(10);
  const double many = bestOf(10000);
  EXPECT_LT(many, 3 * few);
  ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &before));
}
