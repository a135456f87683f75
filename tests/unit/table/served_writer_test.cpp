// SPDX-License-Identifier: MIT
//
// A writer that serves its readers from a thread of its own.
#include "unit/table/table_program.h"

#include "support/descriptor.h"

#include "threaded/lock_wait.h"

#include <brask/linux/event_loop.h>
#include <zorbe/exceptions.h>
#include <zorbe/root_path.h>
#include <zorbe/table/codec.h>
#include <zorbe/util.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

/// Keeps the messages of any thread. Throws one of them back when it begins with `thrown`.
class SharedHandler : public Brask::Platform::DebugHandler {
 public:
  bool isEnabled(int level) override { return level <= maxLevel.load(); }
  void emit(std::ostringstream& message, int level) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_ += std::to_string(level) + " " + message.str() + "\n";
    if (thrown_.empty() || message.str().rfind(thrown_, 0) != 0) return;
    thrown_.clear();
    throw std::runtime_error("no room for messages");
  }

  void throwOnce(const std::string& beginning) {
    const std::lock_guard<std::mutex> lock(mutex_);
    thrown_ = beginning;
  }
  std::string lines() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }

  std::atomic<int> maxLevel{9};

 private:
  std::mutex mutex_;
  std::string lines_;
  std::string thrown_;
};

class ServedWriterTest : public TableProgram {
 protected:
  SharedHandler shared;
};

TEST_F(ServedWriterTest, WritesErasesScansAndSaysWhereItsRecordsComeFrom) {
  Writer writer("t", options);
  for (uint32_t key = 0; key < 10; ++key) writer.put(key, {key, 0});
  EXPECT_TRUE(writer.erase(7));
  EXPECT_FALSE(writer.erase(7));
  std::map<uint32_t, int64_t> found;
  for (const auto& [key, value] : writer.scan()) found[key] = value.a;
  EXPECT_EQ(found.size(), 9u);
  EXPECT_EQ(found.count(7), 0u);
  EXPECT_EQ(found[9], 9);
  EXPECT_EQ(writer.size(), 9u);
  const Reader reader("t", options);
  EXPECT_EQ(reader.info().origin, Table::Origin::local);
  writer.setOrigin(Table::Origin::mirrored);
  EXPECT_EQ(reader.info().origin, Table::Origin::mirrored);
}

// The handler throws on the writer's thread, while that accepts a reader.
TEST_F(ServedWriterTest, ContinuesToServeAfterAnException) {
  options.log = &shared;
  Writer writer("t", options);
  options.log = &quiet_;
  shared.throwOnce("WriterKickSm::handleReaderConnection()");
  Reader reader("t", options);
  EXPECT_TRUE(waitUntil(reader, [&] {
    return shared.lines().find("0 ServedWriter::turn() t: no room for messages\n") !=
           std::string::npos;
  }));
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
}

TEST_F(ServedWriterTest, LogsItsStartAndNotItsAttemptsToStart) {
  auto first = std::make_unique<Writer>("t", options);
  options.log = &shared;
  options.waitForLock = 0.05;
  EXPECT_THROW(Writer("t", options), DuplicateWriterException);
  const std::string refused = shared.lines();
  const std::string attempt = "WriterKickSm::createKickSocket() creating socket\n";
  const size_t last = refused.find(attempt);
  ASSERT_NE(last, std::string::npos);
  EXPECT_EQ(refused.find(attempt, last + 1), std::string::npos) << refused;
  first.reset();
  options.waitForLock = 0;
  const Writer second("t", options);
  EXPECT_THAT(shared.lines().substr(refused.size()),
              testing::HasSubstr("WriterCore::logStart() " + inRoot("t") + " records:0"));
}

// It would not help to wait for the writer lock.
TEST_F(ServedWriterTest, ReportsOtherErrorsThanTheLockAtOnceAndLogsAgain) {
  Writer("t", options);
  Brask::Linux::EventLoop loop;
  Table::MutableHandler log(shared);
  options.log = &log;
  options.waitForLock = 1e6;
  const Table::Codec<uint64_t, Record> other(options.keyName);
  try {
    static_cast<void>(Table::becomeWriter("t", options, other.schema(), log));
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::schema);
  }
  EXPECT_THAT(shared.lines(), testing::Not(testing::HasSubstr("WriterKickSm")));
  EXPECT_TRUE(log.isEnabled(0));
}

// It is starting or ending: it has the lock and accepts nobody.
TEST_F(ServedWriterTest, TriesAgainWhenAnotherWriterRefusesConnections) {
  std::filesystem::create_directory(inRoot("t"));
  const Descriptor lock(Util::acquireWriterLock(quiet_, RootPath(quiet_, "t", false)));
  options.log = &shared;
  options.waitForLock = 0.05;
  EXPECT_THROW(Writer("t", options), DuplicateWriterException);
}

TEST_F(ServedWriterTest, ItsReaderProcessesAndRefreshesForAnotherLoop) {
  auto writer = std::make_unique<Writer>("t", options);
  writer->put(1, {10, 0});
  Reader reader("t", options);
  reader.process();
  EXPECT_TRUE(sees(reader, 1, 10));
  const int fd = reader.fd();
  EXPECT_FALSE(reader.refresh());
  while (isReadable(fd, 0)) {
    reader.process();
    drain(reader);
  }
  writer.reset();
  std::filesystem::remove_all(inRoot("t"));
  writer = std::make_unique<Writer>("t", options);
  writer->put(1, {11, 0});
  EXPECT_TRUE(reader.refresh());
  EXPECT_TRUE(isReadable(fd, 0)) << "the new table's records are there to be delivered";
  EXPECT_TRUE(sees(reader, 1, 11));
}

}  // namespace
}  // namespace Zorbe::Test
