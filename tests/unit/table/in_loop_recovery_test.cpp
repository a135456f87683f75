// SPDX-License-Identifier: MIT
//
// A reader and a writer on the bundled loop find each other and their files again.
#include "unit/table/in_loop_fixture.h"

#include "support/descriptor.h"
#include "support/raw_peer.h"
#include "support/table.h"

#include <fcntl.h>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace Zorbe::Test {
namespace {

// It calls next() only from onReady, and has nothing to read when it connects again.
TEST_F(InLoop, AReaderThatHasEverythingIsWokenByTheNextWriter) {
  handler.allowFailures();  // of the connection that a writer ends
  auto writer = std::make_unique<Writer>("t", options);
  writer->put(1, {10, 0});
  writer->publish();
  Reader reader("t", options);
  reader.onReady([&] { drain(reader); });
  EXPECT_TRUE(turnUntil([&] { return copy[1] == 10; }));
  writer.reset();
  EXPECT_TRUE(becomes(reader, State::orphaned));
  writer = std::make_unique<Writer>("t", options);
  EXPECT_TRUE(becomes(reader, State::connected));
  while (loop.turn(0.0)) continue;
  writer->put(1, {11, 0});
  writer->publish();
  EXPECT_TRUE(turnUntil([&] { return copy[1] == 11; }));
}

TEST_F(InLoop, AWriterWhoseLastMessageThrowsHasPublishedAllTheSame) {
  handler.allowFailures();  // of the connection that the writer ends
  auto writer = std::make_unique<Writer>("t", options);
  Reader reader("t", options);
  EXPECT_TRUE(turnUntil([&] { return isAccepted(reader); }));
  drain(reader);
  while (loop.turn(0.0)) continue;
  writer->put(1, {10, 0});
  handler.throwAt(1);
  writer.reset();
  EXPECT_EQ(reader.info().published, 1u);
  EXPECT_TRUE(sees(reader, 1, 10));
}

// It has caught up more often than its connection holds reports.
TEST_F(InLoop, AReaderWhoseReportFoundNoRoomIsWokenAllTheSame) {
  Writer writer("t", options);
  Reader reader("t", options);
  writer.put(1, {0, 0});
  EXPECT_TRUE(sees(reader, 1, 0));
  while (loop.turn(0.0)) continue;
  for (int64_t value = 1; value <= 2000; ++value) {  // the writer's loop does not turn
    writer.put(1, {value, 0});
    writer.publish();
    drain(reader);
  }
  EXPECT_EQ(copy[1], 2000);
  reader.onReady([&] { drain(reader); });
  while (loop.turn(0.0)) continue;
  writer.put(1, {2001, 0});
  writer.publish();
  EXPECT_TRUE(turnUntil([&] { return copy[1] == 2001; }));
}

// Whose end the kernel does not report for as long as one of its files is open.
TEST_F(InLoop, ADirectoryThatTakesTheRemovedOnesPlaceIsWatched) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  reader.onReady([&] { drain(reader); });
  EXPECT_TRUE(turnUntil([&] { return copy[1] == 10; }));
  const Descriptor open(::open(inRoot("t/slots").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_GE(open.get(), 0);
  for (int round = 0; round < 2; ++round) {
    const uint64_t incarnation = reader.info().incarnation;
    std::filesystem::remove_all(inRoot("t"));
    std::filesystem::create_directory(inRoot("t"));  // before anybody looks
    EXPECT_TRUE(turnUntil([&] {
      return reader.info().incarnation != incarnation && reader.state() == State::connected;
    })) << round;
    while (loop.turn(0.0)) continue;
  }
}

// The loop has not turned since: the files cannot grow where they were.
TEST_F(InLoop, ATableThatHasToGrowIsMadeAgainWhereItsDirectoryWasRemoved) {
  options.records = 1;
  Writer writer("t", options);
  Reader reader("t", options);
  for (uint32_t key = 0; key < 1000; ++key) {
    if (key % 100 == 1) std::filesystem::remove_all(inRoot("t"));
    writer.put(key, {key, 0});
  }
  EXPECT_TRUE(sees(reader, 999, 999));
  EXPECT_EQ(copy.size(), 1000u);
  EXPECT_EQ(reader.size(), 1000u);
}

// It would have to grow. Without a directory it cannot, and says why.
TEST_F(InLoop, ATableWhoseDirectoryCannotBeMadeAgainRefusesWhatDoesNotFit) {
  handler.allowFailures();
  options.records = 1;
  Writer writer("t", options);
  Reader reader("t", options);
  writer.put(0, {0, 0});
  std::filesystem::remove_all(inRoot("t"));
  std::ofstream(inRoot("t")).close();
  try {
    for (uint32_t key = 1; key < 1000; ++key) writer.put(key, {key, 0});
    ADD_FAILURE() << "there is no directory";
  } catch (const Table::Error& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("mkpath() " + inRoot("t")));
    EXPECT_EQ(error.key(), std::to_string(writer.size()));
  }
  std::filesystem::remove(inRoot("t"));
  writer.put(1000, {1000, 0});
  EXPECT_TRUE(sees(reader, 1000, 1000));
  EXPECT_EQ(copy.size(), writer.size());
}

TEST_F(InLoop, ConnectionsThatComeAndGoDoNotKeepAWriterFromItsFiles) {
  handler.allowFailures();  // of the connections that end
  Writer writer("t", options);
  writer.put(1, {10, 0});
  while (loop.turn(0.0)) continue;
  std::filesystem::remove_all(inRoot("t"));
  EXPECT_TRUE(turnUntil([&] {
    static_cast<void>(RawPeer::connect(inRoot("t")));
    return std::filesystem::exists(inRoot("t/slots"));
  }));
}

// The writer that has the lock is not that of the files: a report of what they hold ends the
// connection.
TEST_F(InLoop, AReaderThatIsRefusedByTheWriterDoesNotSpin) {
  handler.allowFailures();
  std::make_unique<Writer>("t", options)->put(1, {10, 0});
  SharedTable other;
  TableWriter stranger(handler, RootPath(handler, "t", true), other);
  stranger.open();
  Reader reader("t", options);
  reader.onReady([&] { drain(reader); });
  EXPECT_TRUE(turnUntil([&] { return stranger.changes >= 3; }));
  const unsigned before = stranger.changes;
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
  while (std::chrono::steady_clock::now() < end) loop.turn(0.01);
  EXPECT_LE(stranger.changes - before, 8u) << "each connection comes and goes, four times a second";
}

}  // namespace
}  // namespace Zorbe::Test
