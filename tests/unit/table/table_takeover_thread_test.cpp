// SPDX-License-Identifier: MIT
//
// The table of several writers, and of processes that fork or stop.
#include "unit/table/table_program.h"

#include "support/child_process.h"

#include <zorbe/exceptions.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace Zorbe::Test {
namespace {

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
  besideAChild([&] {
    writer.reset();
    EXPECT_NO_THROW(Writer("t", options));
  });
}

// The threads of a stopped process do not accept: six connections fill its queue.
TEST_F(TableProgram, AReaderOfAStoppedWriterIsHeldUpByNothing) {
  ChildProcess child("writer", [this](Channel& parent) {
    Writer writer("t", options);
    writer.put(1, {10, 0});
    parent.send("written");
    parent.receive();
  });
  child.await("written");
  child.stop();
  std::vector<std::unique_ptr<Reader>> readers;
  for (int i = 0; i < 12; ++i) {
    readers.push_back(std::make_unique<Reader>("t", options));
    EXPECT_EQ(readers.back()->get(1)->a, 10);
    copy.clear();
    EXPECT_GT(drain(*readers.back()), 0u);
  }
  Reader& last = *readers.back();
  EXPECT_EQ(last.state(), State::orphaned);
  child.signal(SIGCONT);
  EXPECT_TRUE(waitUntil(last, [&] { return last.state() == State::connected; }));
}

}  // namespace
}  // namespace Zorbe::Test
