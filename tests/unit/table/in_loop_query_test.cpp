// SPDX-License-Identifier: MIT
//
// What a table on the bundled loop reports: its records, its age, its readers.
#include "unit/table/in_loop_fixture.h"

#include <unistd.h>
#include <zorbe/table/codec.h>

#include <filesystem>

namespace Zorbe::Test {
namespace {

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
  EXPECT_TRUE(writer.contains(8));
  EXPECT_FALSE(writer.contains(7));
}

TEST_F(InLoop, AScanEndsBehindTheLastPossibleSlot) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  const Table::ReaderCore reader("t", options, Table::Codec<uint32_t, Record>("key").schema());
  Table::ViewCore view = reader.view();
  uint64_t key = 0;
  Record record{};
  for (const uint64_t end : {uint64_t{UINT32_MAX} - 1, uint64_t{UINT32_MAX}, uint64_t{1} << 32}) {
    uint64_t cursor = end;
    EXPECT_FALSE(view.scan(cursor, &key, &record)) << end;
    EXPECT_EQ(cursor, end);
  }
  uint64_t cursor = 0;
  view = view.clone();
  EXPECT_TRUE(view.scan(cursor, &key, &record));
  EXPECT_EQ(record.a, 10);
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
  EXPECT_GE(reader.status()->kicks, 2u);  // for the reader's first report, and for the change
  EXPECT_EQ(reader.status()->takeovers, 0u);
  EXPECT_GE(reader.status()->now, reader.status()->peers[0].since);
  handler.allowFailures();  // of the connections that the writer ends
  writer.reset();
  writer = std::make_unique<Writer>("t", options);
  EXPECT_EQ(reader.status()->connections, 0u);
  EXPECT_EQ(reader.status()->kicks, 0u);
  EXPECT_EQ(reader.status()->takeovers, 1u);
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

}  // namespace
}  // namespace Zorbe::Test
