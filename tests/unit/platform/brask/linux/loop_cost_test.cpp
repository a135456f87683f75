// SPDX-License-Identifier: MIT
//
// What a turn allocates, and what goes on allocating.
#include <sys/inotify.h>

#include <atomic>
#include <memory>
#include <new>
#include <vector>

#include "unit/platform/brask/linux/busy_handlers.h"

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

class LoopCostTest : public LoopTest {
 protected:
  void turnOften(int turns = kTurns) {
    for (int each = 0; each < turns; ++each) loop->turn(0);
  }

  long allocationsOf(const std::function<void()>& work) {
    const long before = allocations.load();
    work();
    return allocations.load() - before;
  }
};

}  // namespace

TEST_F(LoopCostTest, ADescriptorEventAllocatesNothing) {
  Pair pair;
  Reader reader;
  reader.control->watch(pair.here);
  pair.makeReady();
  EXPECT_EQ(0, allocationsOf([this] { turnOften(); }));
  EXPECT_EQ(kTurns, reader.events);
}

TEST_F(LoopCostTest, ATimerEventAllocatesNothing) {
  Ticker immediate;
  Ticker moved;
  immediate.control->start(0.0);
  EXPECT_EQ(0, allocationsOf([&] {
              for (int each = 0; each < kTurns; ++each) {
                moved.control->start(100.0 + each);
                loop->turn(0);
              }
            }));
  EXPECT_EQ(kTurns, immediate.events);
}

TEST_F(LoopCostTest, AnInotifyEventAllocatesNothing) {
  Directory directory;
  Watcher watchers[4];
  watchers[0].control->addWatch(directory.path, IN_CREATE | IN_ATTRIB);
  ::chmod(directory.path.c_str(), 0750);
  settle();  // there is memory for what read(2) brings now
  for (Watcher& watcher : watchers)
    watcher.control->addWatch(directory.path, IN_CREATE | IN_ATTRIB);
  const std::string file = directory.path + "/" + std::string(200, 'x');
  touch(file);
  for (int each = 0; each < 10; ++each) ::chmod(file.c_str(), each % 2 != 0 ? 0600 : 0640);
  ::chmod(directory.path.c_str(), 0750);
  EXPECT_EQ(0, allocationsOf([this] { settle(); }));
  EXPECT_GE(watchers[3].events, 3);
}

TEST_F(LoopCostTest, WatchingMoreAndMoreDescriptorsAllocatesSeldom) {
  constexpr size_t many = 800;
  std::vector<Reader> readers(many);
  std::vector<int> fds;
  for (size_t each = 0; each < many; ++each) fds.push_back(::eventfd(0, EFD_CLOEXEC));
  EXPECT_LT(allocationsOf([&] {
              for (size_t each = 0; each < many; ++each) readers[each].control->watch(fds[each]);
            }),
            50);
  readers.clear();
  for (const int fd : fds) ::close(fd);
}

TEST_F(LoopCostTest, EndingRegistrationsAndBeginningAgainAllocatesNothing) {
  constexpr size_t many = 100;
  std::vector<Reader> readers(many);
  std::vector<int> fds;
  for (size_t each = 0; each < many; ++each) fds.push_back(::eventfd(0, EFD_CLOEXEC));
  for (size_t each = 0; each < many; ++each) readers[each].control->watch(fds[each]);
  EXPECT_EQ(0, allocationsOf([&] {
              for (Reader& reader : readers) reader.control->unwatch();
              for (size_t each = 0; each < size_t{kTurns}; ++each) {
                readers[each % many].control->watch(fds[each % many]);
              }
            }));
  readers.clear();
  for (const int fd : fds) ::close(fd);
}

TEST_F(LoopCostTest, MakingMoreAndMoreTimersAllocatesSeldom) {
  constexpr int many = 800;
  std::vector<std::unique_ptr<Ticker>> timers(many);
  EXPECT_LT(allocationsOf([&] {
              for (auto& timer : timers) {
                timer = std::make_unique<Ticker>();
                timer->control->start(1000.0);
              }
            }),
            2 * many + 20);
}

TEST_F(LoopCostTest, StartingATimerNeverAllocates) {
  std::vector<std::unique_ptr<Ticker>> timers;
  for (int count = 1; count <= 100; ++count) {
    timers.push_back(std::make_unique<Ticker>());
    EXPECT_EQ(0, allocationsOf([&] {
                for (auto& timer : timers) timer->control->start(1000.0);
              }));
    for (auto& timer : timers) timer->control->cancel();
  }
}

TEST_F(LoopCostTest, TimersThatComeAndGoLeaveNoRoomBehindThatGrows) {
  EXPECT_GE(2 * kTurns, allocationsOf([] {
              for (int each = 0; each < kTurns; ++each) std::make_unique<Ticker>();
            }));
}

TEST_F(LoopCostTest, PathsThatComeAndGoLeaveNoRoomBehindThatGrows) {
  const Directory directory;
  Watcher watcher;
  const auto cycles = [&](int count) {
    return allocationsOf([&] {
      for (int each = 0; each < count; ++each) {
        watcher.control->addWatch(directory.path, IN_CREATE);
        watcher.control->removeWatch();
        loop->turn(0);
      }
    });
  };
  cycles(10);
  const long first = cycles(kTurns);
  EXPECT_EQ(first, cycles(kTurns));
}

// The buffer that events are read into is used again and again, and each is still its control's.
TEST_F(LoopCostTest, EventsThatComeAndGoLeaveNoRoomBehindThatGrows) {
  const Directory directory;
  const std::string file = directory.path + "/" + std::string(240, 'x');
  Watcher early, late;
  const auto cycles = [&](int count) {
    return allocationsOf([&] {
      for (int each = 0; each < count; ++each) {
        touch(file);
        ::unlink(file.c_str());
        settle();
      }
    });
  };
  early.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  cycles(300);
  late.control->addWatch(directory.path, IN_CREATE | IN_DELETE);
  EXPECT_EQ(0, cycles(kTurns));
  EXPECT_EQ(2 * kTurns, late.events);
  EXPECT_EQ(2 * kTurns + 600, early.events);
}
