// SPDX-License-Identifier: MIT
//
// The table's interface in C with signals, threads and child processes.
#include "unit/table/c_table.h"

#include "support/child_process.h"
#include "support/periodic_signal.h"

#include <atomic>
#include <thread>

namespace Zorbe::Test {
namespace {

class CThreads : public CInterface {};

TEST_F(CThreads, AWaitEndsWithASignal) {
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  const PeriodicSignal signals;
  EXPECT_EQ(zorbe_wait(reader, -1), ZORBE_INTERRUPTED);
  EXPECT_EQ(zorbe_wait(reader, INT64_MAX), ZORBE_INTERRUPTED);
  EXPECT_EQ(zorbe_error(reader), 0);
}

TEST_F(CThreads, ThreadsShareAWriter) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  constexpr uint32_t kThreads = 3;
  constexpr uint32_t kEach = 500;
  std::atomic<unsigned> failures{0};
  std::vector<std::thread> threads;
  for (uint32_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (uint32_t i = 0; i < kEach; ++i) {
        if (put(writer, thread * kEach + i, i) != 0) ++failures;
        if (zorbe_put(writer, &i, 3, nullptr, 0) != ZORBE_E_USAGE) ++failures;
        if (i % 10 == 0 && zorbe_publish(writer) != 0) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0u);
  EXPECT_EQ(zorbe_count(writer), kThreads * kEach);
  EXPECT_EQ(zorbe_count(reader), kThreads * kEach);
  EXPECT_EQ(put(writer, 1, 1), 0);
  EXPECT_STREQ(zorbe_error_text(writer), "");
}

TEST_F(CThreads, AHandleBelongsToTheParent) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  CTable reader;
  ASSERT_EQ(openReader(reader), 0);
  const int failed = inChild([&] {
    zorbe_change change{};
    zorbe_info info{};
    info.size = sizeof info;
    if (put(writer, 1, 11) != ZORBE_E_CLOSED || erase(writer, 1) != ZORBE_E_CLOSED) return 1;
    if (zorbe_publish(writer) != ZORBE_E_CLOSED || valueOf(writer, 1) != -ZORBE_E_CLOSED) return 2;
    if (zorbe_count(writer) != 0 || zorbe_error(writer) != ZORBE_E_CLOSED) return 3;
    if (zorbe_wait(reader, 0) != ZORBE_E_CLOSED || zorbe_fd(reader) != ZORBE_E_CLOSED) return 4;
    if (zorbe_next(reader, &change) != ZORBE_E_CLOSED) return 5;
    if (zorbe_process(reader) != ZORBE_E_CLOSED) return 6;
    if (zorbe_refresh(reader) != ZORBE_E_CLOSED) return 7;
    if (zorbe_get_info(reader, &info) != ZORBE_E_CLOSED) return 8;
    if (valueOf(reader, 1) != 10 || zorbe_count(reader) != 1) return 9;
    if (zorbe_fields(reader, nullptr) == nullptr) return 10;
    writer.close();
    reader.close();
    CTable own;
    return openReader(own) == 0 && valueOf(own, 1) == 10 ? 0 : 11;
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(put(writer, 1, 12), 0);
  EXPECT_EQ(valueOf(reader, 1), 12);
}

TEST_F(CThreads, AWriterWaitsForTheLock) {
  CTable first;
  ASSERT_EQ(openWriter(first), 0);
  options.wait_for_lock = 1'000'000;
  CTable second;
  EXPECT_EQ(openWriter(second), ZORBE_E_DUPLICATE);
  options.wait_for_lock = -1;
  std::atomic<int> opened{1};
  std::thread waiting([&] { opened.store(openWriter(second)); });
  EXPECT_EQ(put(first, 1, 10), 0);
  first.close();
  waiting.join();
  EXPECT_EQ(opened.load(), 0);
  EXPECT_EQ(valueOf(second, 1), 10);
}

}  // namespace
}  // namespace Zorbe::Test
