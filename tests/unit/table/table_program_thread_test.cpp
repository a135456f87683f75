// SPDX-License-Identifier: MIT
//
// The table as programs without an event loop use it.
#include "unit/table/table_program.h"

#include "support/periodic_signal.h"

#include <atomic>
#include <filesystem>
#include <thread>

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;

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
  Reader reader("t", options);
  const PeriodicSignal signals;
  EXPECT_FALSE(reader.wait(std::chrono::nanoseconds::max()));
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

}  // namespace
}  // namespace Zorbe::Test
