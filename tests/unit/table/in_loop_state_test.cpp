// SPDX-License-Identifier: MIT
//
// What a reader on the bundled loop says of itself, call by call.
#include "unit/table/damage.h"
#include "unit/table/in_loop_fixture.h"

#include "support/raw_peer.h"

#include "memory/layout.h"

#include <zorbe/exceptions.h>

#include <unistd.h>

#include <filesystem>

namespace Zorbe::Test {
namespace {

using Table::Error;
using Table::ErrorCode;

void publish(Table::LoopWriter<uint32_t, Record>& writer, uint32_t key, const Record& record) {
  writer.put(key, record);
  writer.publish();
}

TEST_F(InLoop, ATableOfAnotherOwnerIsRefused) {
  const Writer writer("t", options);
  options.owner = ::geteuid() + 1;
  Reader reader("t", options);
  EXPECT_EQ(reader.state(), State::refused);
  EXPECT_TRUE(reader.hasNext());  // the error
  try {
    reader.next();
    ADD_FAILURE() << "was not refused";
  } catch (const Error& error) {
    EXPECT_EQ(error.code(), ErrorCode::denied);
  }
  EXPECT_FALSE(reader.hasNext());
  EXPECT_EQ(reader.info().incarnation, 0u);
  EXPECT_EQ(reader.status(), std::nullopt);
  options.owner = ::geteuid();
  EXPECT_EQ(Reader("t", options).state(), State::connected);
}

TEST_F(InLoop, ACallThatFindsDamageReportsItItself) {
  Writer writer("t", options);
  publish(writer, 1, {10, 0});
  Reader reader("t", options);
  drain(reader);
  publish(writer, 1, {11, 0});
  const std::string log = inRoot("t/conquer.1");
  const uint64_t before =
      overwriteWord(log, Table::kLogEntries + 2 * 8, Table::packEntry(2, 1'000'000));
  EXPECT_TRUE(reader.hasNext());
  EXPECT_THROW(reader.next(), CorruptionDetectedException);
  EXPECT_FALSE(reader.hasNext());  // until it is tried again
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_EQ(reader.get(1)->a, 11);
  overwriteWord(log, Table::kLogEntries + 2 * 8, before);
  EXPECT_TRUE(sees(reader, 1, 11));
}

TEST_F(InLoop, InfoIsOfTheTableThatIsRead) {
  options.records = 77;
  Writer writer("t", options);
  Reader reader("t", options);
  EXPECT_EQ(reader.info().position, 0u);
  for (int64_t i = 1; i <= 3; ++i) writer.put(1, {i, 0});
  writer.publish();
  EXPECT_EQ(reader.info().records, 77u);
  EXPECT_EQ(reader.info().published, 3u);
  drain(reader);
  EXPECT_EQ(reader.info().position, 3u);
  EXPECT_EQ(reader.info().lag, 0u);
  EXPECT_EQ(reader.info().originSince, 0);
  publish(writer, 1, {4, 0});
  EXPECT_EQ(reader.info().lag, 1u);
}

TEST_F(InLoop, TheKindsOfChangesAreNamed) {
  Writer writer("t", options);
  publish(writer, 1, {10, 0});
  Reader reader("t", options);
  drain(reader);
  writer.erase(1);
  writer.publish();
  drain(reader);
  EXPECT_EQ(kinds, (std::vector<Kind>{Kind::reset, Kind::put, Kind::complete, Kind::erased}));
}

// A writer with readers looks more often, and each of these connections leads to a look.
TEST_F(InLoop, BesideAReaderConnectionsThatComeAndGoDoNotPutOffTheFiles) {
  handler.allowFailures();  // of the connections that end
  Writer writer("t", options);
  Reader reader("t", options);
  EXPECT_TRUE(turnUntil([&] { return isAccepted(reader); }));
  std::filesystem::remove_all(inRoot("t"));
  EXPECT_TRUE(turnUntil([&] {
    static_cast<void>(RawPeer::connect(inRoot("t")));
    return std::filesystem::exists(inRoot("t/slots"));
  }));
}

// Nothing that the program has to read.
TEST_F(InLoop, AFunctionIsNotCalledForNothing) {
  Writer writer("t", options);
  Reader reader("t", options);
  drain(reader);
  EXPECT_TRUE(turnUntil([&] { return isAccepted(reader); }));
  unsigned calls = 0;
  reader.onReady([&] { ++calls; });
  while (loop.turn(0.0)) continue;
  EXPECT_EQ(calls, 0u);
  publish(writer, 1, {10, 0});
  EXPECT_TRUE(turnUntil([&] { return calls > 0; }));
  drain(reader);
  while (loop.turn(0.0)) continue;
  const unsigned before = calls;
  while (loop.turn(0.0)) continue;
  EXPECT_EQ(calls, before);
}

}  // namespace
}  // namespace Zorbe::Test
