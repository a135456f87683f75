// SPDX-License-Identifier: MIT
//
// The table as programs without an event loop use it.
#include <zorbe/table.h>

#include "unit/table/record.h"

#include "support/fixture.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <map>
#include <thread>

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;
using Table::Kind;
using Table::State;

using Writer = Table::Writer<uint32_t, Record>;
using Reader = Table::Reader<uint32_t, Record>;

constexpr auto kDeadline = 20s;

class TableProgram : public ZorbeTest {
 protected:
  TableProgram() {
    handler.allowFailures();  // of connections that writers end
    options.root = rootPath();
    options.log = &quiet_;
  }

  bool sees(Reader& reader, uint32_t key, int64_t value) {
    return waitUntil(reader, [&] {
      const auto found = copy.find(key);
      return found != copy.end() && found->second == value;
    });
  }

  template <class Done>
  bool waitUntil(Reader& reader, Done done) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      reader.wait(50ms);
      drain(reader);
    }
    return true;
  }

  size_t drain(Reader& reader) {
    size_t changes = 0;
    while (const auto change = reader.next()) {
      ++changes;
      if (change->kind == Kind::reset) copy.clear();
      if (change->kind == Kind::put) copy[change->key] = change->value.a;
      if (change->kind == Kind::erased) copy.erase(change->key);
    }
    return changes;
  }

  static bool isReadable(int fd, int milliseconds) {
    pollfd waiting{fd, POLLIN, 0};
    return ::poll(&waiting, 1, milliseconds) == 1;
  }

  // Runs `body` in a child process and returns its exit code.
  template <class Body>
  static int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  class Quiet : public Brask::Platform::DebugHandler {
   public:
    bool isEnabled(int) override { return false; }
    void emit(std::ostringstream&, int) override {}
  };

  Quiet quiet_;
  Table::Options options;
  std::map<uint32_t, int64_t> copy;
};

TEST_F(TableProgram, AReaderGetsAndFollows) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  writer.publish();
  Reader reader("t", options);
  EXPECT_EQ(reader.get(1)->a, 10);
  EXPECT_TRUE(sees(reader, 1, 10));
  for (int64_t i = 11; i < 40; ++i) {
    writer.put(1, {i, 0});
    writer.publish();
    ASSERT_TRUE(sees(reader, 1, i));
  }
  EXPECT_EQ(reader.state(), State::connected);
  EXPECT_EQ(reader.info().lag, 0u);
}

TEST_F(TableProgram, WhatIsNotPublishedIsPublishedByTheThread) {
  Writer writer("t", options);
  Reader reader("t", options);
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
}

TEST_F(TableProgram, WaitEndsWithItsTime) {
  Reader reader("t", options);
  EXPECT_FALSE(reader.wait(0ns));
  EXPECT_FALSE(reader.wait(1ms));
  EXPECT_FALSE(reader.wait(-1ms));
  EXPECT_EQ(reader.state(), State::waiting);
}

TEST_F(TableProgram, WaitForEverEndsWithAChange) {
  Reader reader("t", options);
  std::thread later([&] {
    Writer writer("t", options);
    writer.put(1, {10, 0});
  });
  EXPECT_TRUE(reader.wait(std::chrono::nanoseconds::max()));
  EXPECT_GT(drain(reader), 0u);
  later.join();
}

TEST_F(TableProgram, WaitReturnsWhenASignalComes) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
  Reader reader("t", options);
  const pthread_t self = ::pthread_self();
  std::atomic<bool> returned{false};
  std::thread sender([&] {
    while (!returned.load()) {
      ::pthread_kill(self, SIGUSR1);
      std::this_thread::yield();
    }
  });
  EXPECT_FALSE(reader.wait(std::chrono::nanoseconds::max()));
  returned.store(true);
  sender.join();
  ASSERT_EQ(::sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST_F(TableProgram, AnotherLoopPollsTheDescriptor) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  const int fd = reader.fd();
  EXPECT_TRUE(isReadable(fd, 10'000));  // the records that were there before
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (copy[1] != 99 && std::chrono::steady_clock::now() < end) {
    if (reader.state() == State::connected && copy[1] == 10) {
      writer.put(1, {99, 0});
      writer.publish();
    }
    if (!isReadable(fd, 1000)) continue;
    reader.process();
    drain(reader);
  }
  EXPECT_EQ(copy[1], 99);
}

TEST_F(TableProgram, WhatWasNotTakenKeepsTheDescriptorReadable) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  const int fd = reader.fd();
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(isReadable(fd, 10'000));
    reader.process();
  }
  EXPECT_TRUE(waitUntil(reader, [&] { return reader.state() == State::connected; }));
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (isReadable(fd, 0) && std::chrono::steady_clock::now() < end) {
    reader.process();
    drain(reader);
  }
  EXPECT_FALSE(isReadable(fd, 0));
}

TEST_F(TableProgram, ManyThreadsWriteAndViewsReadInThreads) {
  Writer writer("t", options);
  Reader reader("t", options);
  constexpr uint32_t kThreads = 3;
  constexpr uint32_t kEach = 2000;
  std::vector<std::thread> threads;
  std::atomic<unsigned> wrong{0};
  std::atomic<bool> finished{false};
  for (uint32_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (uint32_t i = 0; i < kEach; ++i) {
        writer.put(thread * kEach + i, {int64_t{thread} * kEach + i, 7});
        if (i % 10 == 0) writer.publish();
      }
    });
  }
  std::thread viewer([&, view = reader.view()] {
    while (!finished.load()) {
      for (const auto& [key, value] : view.scan()) {
        if (value.a != key || value.b != 7) ++wrong;
      }
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(waitUntil(reader, [&] { return copy.size() == kThreads * kEach; }));
  finished.store(true);
  viewer.join();
  EXPECT_EQ(wrong.load(), 0u);
  EXPECT_EQ(writer.size(), kThreads * kEach);
}

TEST_F(TableProgram, AViewFollowsANewTableAndOutlivesItsReader) {
  auto writer = std::make_unique<Writer>("t", options);
  writer->put(1, {10, 0});
  auto reader = std::make_unique<Reader>("t", options);
  const Table::View<uint32_t, Record> view = reader->view();
  EXPECT_EQ(view.get(1)->a, 10);
  writer.reset();
  std::filesystem::remove_all(inRoot("t"));
  writer = std::make_unique<Writer>("t", options);
  writer->put(1, {11, 0});
  EXPECT_EQ(view.get(1)->a, 10);
  EXPECT_TRUE(reader->refresh());
  EXPECT_EQ(view.get(1)->a, 11);
  reader.reset();
  EXPECT_EQ(view.get(1)->a, 11);
}

TEST_F(TableProgram, ASecondWriterIsRefusedAndAStandbyTakesOver) {
  auto first = std::make_unique<Writer>("t", options);
  first->put(1, {10, 0});
  EXPECT_THROW(Writer("t", options), DuplicateWriterException);
  options.waitForLock = 0.05;
  EXPECT_THROW(Writer("t", options), DuplicateWriterException);
  options.waitForLock = 20;
  std::atomic<bool> started{false};
  std::unique_ptr<Writer> second;
  std::thread standby([&] {
    started.store(true);
    second = std::make_unique<Writer>("t", options);
  });
  while (!started.load()) std::this_thread::yield();
  first->put(1, {11, 0});
  first.reset();
  standby.join();
  EXPECT_EQ(second->get(1)->a, 11);
}

TEST_F(TableProgram, AChildHasNothingOfItsParents) {
  auto writer = std::make_unique<Writer>("t", options);
  writer->put(1, {10, 0});
  auto reader = std::make_unique<Reader>("t", options);
  EXPECT_TRUE(sees(*reader, 1, 10));
  EXPECT_EQ(inChild([&] {
              try {
                writer->put(1, {11, 0});
                return 1;
              } catch (const Table::Error& error) {
                if (error.code() != Table::ErrorCode::closed) return 2;
              }
              try {
                reader->next();
                return 3;
              } catch (const Table::Error& error) {
                if (error.code() != Table::ErrorCode::closed) return 4;
              }
              writer.reset();
              reader.reset();
              return 0;
            }),
            0);
  writer->put(1, {12, 0});
  writer->publish();
  EXPECT_TRUE(sees(*reader, 1, 12));
}

TEST_F(TableProgram, AChildThatLivesOnKeepsNoLock) {
  auto writer = std::make_unique<Writer>("t", options);
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    char byte = 0;
    ::_exit(::write(ends[1], "", 1) == 1 && ::read(ends[1], &byte, 1) == 1 ? 0 : 1);
  }
  char forked = 0;
  ASSERT_EQ(::read(ends[0], &forked, 1), 1);
  writer.reset();
  EXPECT_NO_THROW(Writer("t", options));
  ASSERT_EQ(::write(ends[0], "", 1), 1);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(::close(ends[0]) + ::close(ends[1]), 0);
}

// The threads of a stopped process do not accept: six connections fill its queue.
TEST_F(TableProgram, AReaderOfAStoppedWriterIsHeldUpByNothing) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    Writer writer("t", options);
    writer.put(1, {10, 0});
    if (::write(ends[1], "", 1) != 1) ::_exit(1);
    for (;;) ::pause();
  }
  char byte = 0;
  ASSERT_EQ(::read(ends[0], &byte, 1), 1);
  ASSERT_EQ(::kill(child, SIGSTOP), 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
  {
    std::vector<std::unique_ptr<Reader>> readers;
    for (int i = 0; i < 12; ++i) {
      readers.push_back(std::make_unique<Reader>("t", options));
      EXPECT_EQ(readers.back()->get(1)->a, 10);
      copy.clear();
      EXPECT_GT(drain(*readers.back()), 0u);
    }
    EXPECT_EQ(readers.back()->state(), State::orphaned);
    ASSERT_EQ(::kill(child, SIGCONT), 0);
    EXPECT_TRUE(
        waitUntil(*readers.back(), [&] { return readers.back()->state() == State::connected; }));
  }
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_EQ(::close(ends[0]) + ::close(ends[1]), 0);
}

}  // namespace
}  // namespace Zorbe::Test
