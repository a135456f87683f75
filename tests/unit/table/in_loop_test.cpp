// SPDX-License-Identifier: MIT
//
// Writer and reader on the bundled loop, in one process.
#include "unit/table/record.h"

#include "support/fixture.h"

#include <brask/linux/event_loop.h>
#include <zorbe/exceptions.h>
#include <zorbe/table/in_loop.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

namespace Zorbe::Test {
namespace {

using Table::Kind;
using Table::State;

using Writer = Table::LoopWriter<uint32_t, Record>;
using Reader = Table::LoopReader<uint32_t, Record>;

class InLoop : public ZorbeTest {
 protected:
  InLoop() {
    options.log = &handler;
    options.root = rootPath();
  }

  template <class Done>
  bool turnUntil(Done done) {
    for (const double end = now() + 20; !done();) {
      if (now() > end) return false;
      loop.turn(0.05);
    }
    return true;
  }

  static double now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }

  // What the reader has delivered so far.
  void drain(Reader& reader) {
    while (const auto change = reader.next()) {
      kinds.push_back(change->kind);
      if (change->kind == Kind::reset) copy.clear();
      if (change->kind == Kind::put) copy[change->key] = change->value.a;
      if (change->kind == Kind::erased) copy.erase(change->key);
    }
  }

  bool sees(Reader& reader, uint32_t key, std::optional<int64_t> value) {
    return turnUntil([&] {
      drain(reader);
      const auto found = copy.find(key);
      return value ? found != copy.end() && found->second == *value : found == copy.end();
    });
  }

  Brask::Linux::EventLoop loop;
  Table::Options options;
  std::vector<Kind> kinds;
  std::map<uint32_t, int64_t> copy;
};

TEST_F(InLoop, AReaderFollowsAWriter) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  EXPECT_EQ(reader.state(), State::connected);
  writer.put(1, {11, 0});
  writer.put(2, {20, 0});
  writer.publish();
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(copy[1], 11);
  EXPECT_EQ(reader.get(1)->a, 11);
  EXPECT_TRUE(writer.erase(1));
  writer.publish();
  EXPECT_TRUE(sees(reader, 1, std::nullopt));
  EXPECT_FALSE(reader.contains(1));
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), Kind::reset), 1);
}

TEST_F(InLoop, WhatIsNotPublishedIsPublishedSoon) {
  Writer writer("t", options);
  Reader reader("t", options);
  EXPECT_TRUE(turnUntil([&] { return reader.state() == State::connected; }));
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
}

TEST_F(InLoop, AReaderIsWokenFromTheLoop) {
  Writer writer("t", options);
  Reader reader("t", options);
  drain(reader);
  unsigned calls = 0;
  reader.onReady([&] {
    ++calls;
    drain(reader);
  });
  EXPECT_TRUE(turnUntil([&] { return reader.state() == State::connected; }));
  for (int64_t i = 1; i <= 20; ++i) {
    writer.put(1, {i, 0});
    writer.publish();
    ASSERT_TRUE(turnUntil([&] { return copy[1] == i; })) << i;
  }
  EXPECT_GE(calls, 20u);
}

TEST_F(InLoop, AReaderThatTakesOneChangeAtATimeIsCalledAgain) {
  Writer writer("t", options);
  for (uint32_t key = 0; key < 10; ++key) writer.put(key, {key, 0});
  writer.publish();
  Reader reader("t", options);
  unsigned taken = 0;
  reader.onReady([&] { taken += reader.next().has_value() ? 1u : 0u; });
  EXPECT_TRUE(turnUntil([&] { return taken == 12; }));  // with reset and complete
  writer.put(1, {11, 0});
  EXPECT_TRUE(turnUntil([&] { return taken == 13; }));
  EXPECT_FALSE(reader.hasNext());
}

TEST_F(InLoop, AReaderWaitsForATableAndCreatesNothing) {
  Reader reader("deep/below/t", options);
  EXPECT_EQ(reader.state(), State::waiting);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_EQ(reader.get(1), std::nullopt);
  EXPECT_EQ(reader.info().incarnation, 0u);
  EXPECT_FALSE(std::filesystem::exists(inRoot("deep")));
  Writer writer("deep/below/t", options);
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
}

TEST_F(InLoop, AnOrphanKeepsItsRecordsAndFollowsTheNextWriter) {
  handler.allowFailures();  // of the connection that a writer ends
  auto writer = std::make_unique<Writer>("t", options);
  writer->put(1, {10, 0});
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  const uint64_t incarnation = reader.info().incarnation;
  writer.reset();
  EXPECT_TRUE(turnUntil([&] { return reader.state() == State::orphaned; }));
  EXPECT_EQ(reader.get(1)->a, 10);
  writer = std::make_unique<Writer>("t", options);
  writer->put(2, {20, 0});
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(reader.info().incarnation, incarnation);
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), Kind::reset), 1);
}

TEST_F(InLoop, ARemovedDirectoryIsMadeAgainAndFollowed) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  const uint64_t incarnation = reader.info().incarnation;
  std::filesystem::remove_all(inRoot("t"));
  EXPECT_TRUE(turnUntil([&] { return reader.info().incarnation != incarnation; }));
  writer.put(2, {20, 0});
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(copy[1], 10);
}

TEST_F(InLoop, ARootThatIsAFileForAWhileIsSurvived) {
  handler.allowFailures();
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  const uint64_t incarnation = reader.info().incarnation;
  std::filesystem::remove_all(inRoot("t"));
  ASSERT_EQ(::close(::creat(inRoot("t").c_str(), 0644)), 0);
  EXPECT_TRUE(turnUntil([&] { return !handler.texts(0).empty(); }));
  EXPECT_EQ(reader.get(1)->a, 10);
  writer.put(2, {20, 0});
  ASSERT_EQ(::unlink(inRoot("t").c_str()), 0);
  EXPECT_TRUE(turnUntil([&] { return reader.info().incarnation != incarnation; }));
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(handler.texts(0).size(), 1u);
}

TEST_F(InLoop, ASecondWriterIsRefused) {
  handler.expectFailures();
  Writer writer("t", options);
  EXPECT_THROW(Writer("t", options), DuplicateWriterException);
  writer.put(1, {10, 0});
}

TEST_F(InLoop, AReaderOfOtherFieldsIsRefusedOnceAndRecovers) {
  auto other = std::make_unique<Table::LoopWriter<uint32_t, int64_t>>("t", options);
  other->put(1, 10);
  Reader reader("t", options);
  EXPECT_EQ(reader.state(), State::refused);
  try {
    reader.next();
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::schema);
    EXPECT_THAT(error.what(), testing::HasSubstr("value value i8 0\n"));
    EXPECT_THAT(error.what(), testing::HasSubstr("value a i8 0\n"));
  }
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_EQ(reader.get(1), std::nullopt);
  other.reset();
  options.replaceOtherSchema = true;
  Writer writer("t", options);
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
  EXPECT_EQ(reader.state(), State::connected);
}

TEST_F(InLoop, AReaderOfTheFirstFieldsReadsALargerRecord) {
  Table::LoopWriter<uint32_t, LargerRecord> writer("t", options);
  writer.put(1, {10, 20, 30});
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  EXPECT_EQ(reader.get(1)->b, 20);
}

TEST_F(InLoop, AKeyThatIsTooLongIsRefusedAndNotFound) {
  Table::LoopWriter<Table::Text<4>, int> writer("t", options);
  writer.put("ABCD", 1);
  try {
    writer.put("ABCDE", 2);
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::tooLarge);
    EXPECT_STREQ(error.what(),
                 "table 't', key 'ABCDE': the key has 5 bytes and its type room for 4");
  }
  EXPECT_EQ(writer.get("ABCDE"), std::nullopt);
  EXPECT_FALSE(writer.contains("ABCDE"));
  EXPECT_FALSE(writer.erase("ABCDE"));
  EXPECT_EQ(writer.get("ABCD"), 1);
  EXPECT_EQ(writer.size(), 1u);
}

TEST_F(InLoop, AFullTableNamesTheKey) {
  options.records = options.maxRecords = 1;
  Writer writer("t", options);
  writer.put(1, {10, 0});
  try {
    writer.put(2, {20, 0});
    ADD_FAILURE() << "was not refused";
  } catch (const Table::Error& error) {
    EXPECT_EQ(error.code(), Table::ErrorCode::full);
    EXPECT_EQ(error.key(), "2");
  }
}

TEST_F(InLoop, HandlesAndScansFindEveryRecord) {
  Writer writer("t", options);
  for (uint32_t key = 0; key < 100; ++key) writer.put(key, {key, 0});
  writer.erase(50);
  Reader reader("t", options);
  const auto handle = reader.find(7);
  ASSERT_TRUE(handle.has_value());
  EXPECT_EQ(handle->key(), 7u);
  Record record{};
  EXPECT_TRUE(reader.read(*handle, record));
  EXPECT_EQ(record.a, 7);
  writer.erase(7);
  EXPECT_FALSE(reader.read(*handle, record));
  EXPECT_FALSE(reader.find(7).has_value());
  size_t count = 0;
  for (const auto& [key, value] : reader.scan()) {
    EXPECT_EQ(value.a, key);
    ++count;
  }
  EXPECT_EQ(count, 98u);
  EXPECT_EQ(reader.size(), 98u);
  EXPECT_EQ(writer.size(), 98u);
  count = 0;
  for (const auto& record2 : writer.scan()) count += record2.second.a == record2.first ? 1 : 0;
  EXPECT_EQ(count, 98u);
  EXPECT_EQ(reader.view().clone().get(8)->a, 8);
}

TEST_F(InLoop, InfoTellsHowFreshTheTableIs) {
  Writer writer("t", options);
  Reader reader("t", options);
  drain(reader);
  writer.put(1, {10, 0});
  writer.publish();
  EXPECT_EQ(reader.info().lag, 1u);
  EXPECT_EQ(reader.info().published, 1u);
  EXPECT_GT(reader.info().publishedAt, 0);
  EXPECT_EQ(reader.info().origin, Table::Origin::local);
  writer.setOrigin(Table::Origin::mirroredLost);
  EXPECT_EQ(reader.info().origin, Table::Origin::mirroredLost);
  EXPECT_GT(reader.info().originSince, 0);
  EXPECT_TRUE(sees(reader, 1, 10));
  EXPECT_EQ(reader.info().lag, 0u);
  EXPECT_EQ(reader.info().position, 1u);
}

TEST_F(InLoop, TheTableTellsWhoReadsIt) {
  auto writer = std::make_unique<Writer>("t", options);
  Reader reader("t", options);
  Reader watcher("t", options);
  writer->put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
  const auto count = [&](Table::PeerState state) {
    size_t matching = 0;
    const Table::Status status = *reader.status();
    for (const Table::Peer& peer : status.peers) {
      EXPECT_EQ(peer.pid, static_cast<uint32_t>(::getpid()));
      EXPECT_EQ(peer.uid, ::getuid());
      matching += peer.state == state ? 1u : 0u;
    }
    return matching;
  };
  EXPECT_TRUE(turnUntil([&] {
    drain(reader);
    return count(Table::PeerState::asleep) == 1 && count(Table::PeerState::watcher) == 1;
  }));
  writer->put(1, {11, 0});
  EXPECT_TRUE(turnUntil([&] { return count(Table::PeerState::behind) == 1; }));
  EXPECT_EQ(reader.status()->connections, 2u);
  EXPECT_GE(reader.status()->now, reader.status()->peers[0].since);
  handler.allowFailures();  // of the connections that the writer ends
  writer.reset();
  writer = std::make_unique<Writer>("t", options);
  EXPECT_EQ(reader.status()->connections, 0u);
}

TEST_F(InLoop, NamesAndRootsThatCannotWorkAreRefused) {
  EXPECT_THROW(Reader("", options), Table::Error);
  EXPECT_THROW(Reader("t/", options), Table::Error);
  EXPECT_THROW(Reader(std::string(92, 'x'), options), Table::Error);
  options.root = "relative";
  EXPECT_THROW(Reader("t", options), Table::Error);
}

TEST_F(InLoop, ADirectoryThatCannotBeMadeIsAnErrorOfTheWriter) {
  ASSERT_EQ(::close(::creat(inRoot("t").c_str(), 0644)), 0);
  try {
    Writer writer("t", options);
    ADD_FAILURE() << "was made";
  } catch (const Table::Error& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("table 't': mkpath() " + inRoot("t")));
  }
}

TEST_F(InLoop, ProgramsThatOnlyGetRefresh) {
  auto writer = std::make_unique<Writer>("t", options);
  writer->put(1, {10, 0});
  Reader reader("t", options);
  EXPECT_FALSE(reader.refresh());
  writer.reset();
  std::filesystem::remove_all(inRoot("t"));
  writer = std::make_unique<Writer>("t", options);
  writer->put(1, {11, 0});
  EXPECT_EQ(reader.get(1)->a, 10);
  EXPECT_TRUE(reader.refresh());
  EXPECT_EQ(reader.get(1)->a, 11);
}

// Its sequences are lower than what the reader has reported.
TEST_F(InLoop, ATableThatBeginsAgainIsFollowed) {
  handler.allowFailures();  // of the connection that a writer ends
  auto writer = std::make_unique<Writer>("t", options);
  Reader reader("t", options);
  for (int64_t i = 0; i < 10; ++i) writer->put(1, {i, 0});
  EXPECT_TRUE(sees(reader, 1, 9));
  writer.reset();
  std::filesystem::remove_all(inRoot("t"));
  writer = std::make_unique<Writer>("t", options);
  writer->put(1, {100, 0});
  EXPECT_TRUE(sees(reader, 1, 100));
  EXPECT_TRUE(turnUntil([&] {
    drain(reader);
    return reader.state() == State::connected;
  }));
  writer->put(1, {101, 0});
  EXPECT_TRUE(sees(reader, 1, 101));
}

}  // namespace
}  // namespace Zorbe::Test
