// SPDX-License-Identifier: MIT
//
// A reader on the bundled loop follows the table and its writers.
#include "unit/table/in_loop_fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

namespace Zorbe::Test {
namespace {

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
  EXPECT_TRUE(becomes(reader, State::connected));
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
}

// Not only when the writer next looks after its files and its readers.
TEST_F(InLoop, WhatIsNotPublishedIsPublishedWithinATenthOfASecond) {
  Writer writer("t", options);
  Reader reader("t", options);
  EXPECT_TRUE(becomes(reader, State::connected));
  writer.put(1, {10, 0});
  uint64_t published = 0;
  TimerProbe tenth([&] { published = reader.info().published; });
  tenth.control->start(0.1);
  EXPECT_TRUE(turnUntil([&] { return tenth.timeouts == 1; }));
  EXPECT_EQ(published, 1u);
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
  EXPECT_TRUE(becomes(reader, State::connected));
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
  EXPECT_FALSE(reader.status().has_value());
  EXPECT_FALSE(reader.hasNext());
  EXPECT_FALSE(reader.refresh());
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
  EXPECT_TRUE(becomes(reader, State::orphaned));
  EXPECT_EQ(reader.get(1)->a, 10);
  writer = std::make_unique<Writer>("t", options);
  writer->put(2, {20, 0});
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(reader.info().incarnation, incarnation);
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), Kind::reset), 1);
}

// As when a writer is restarted: the fixture fails a test with a message of level 0.
TEST_F(InLoop, AWriterThatEndsWithAnUnreadReportIsNoFailureOfTheReader) {
  std::optional<Writer> writer(std::in_place, "t", options);
  Reader reader("t", options);
  EXPECT_TRUE(turnUntil([&] { return isAccepted(reader); }));
  writer->put(1, {10, 0});
  writer->publish();
  drain(reader);  // reports, which the writer's loop has no time to read
  EXPECT_EQ(copy[1], 10);
  writer.reset();
  EXPECT_TRUE(becomes(reader, State::orphaned));
}

TEST_F(InLoop, AWriterThatEndsBeforeItAcceptsAReaderIsNoFailureOfTheReader) {
  std::optional<Writer> writer(std::in_place, "t", options);
  Reader reader("t", options);
  EXPECT_EQ(reader.state(), State::connected);
  writer.reset();
  EXPECT_TRUE(becomes(reader, State::orphaned));
}

TEST_F(InLoop, AReaderThatCatchesUpAfterTheWritersEndReportsNothing) {
  std::optional<Writer> writer(std::in_place, "t", options);
  Reader reader("t", options);
  EXPECT_TRUE(turnUntil([&] { return isAccepted(reader); }));
  writer->put(1, {10, 0});
  writer.reset();
  drain(reader);
  EXPECT_EQ(copy[1], 10);
  EXPECT_TRUE(becomes(reader, State::orphaned));
}

TEST_F(InLoop, ARemovedDirectoryIsMadeAgainAndFollowed) {
  Clients clients(*this, "t");
  auto& [writer, reader, incarnation] = clients;
  std::filesystem::remove_all(inRoot("t"));
  EXPECT_TRUE(leaves(reader, incarnation));
  writer.put(2, {20, 0});
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(copy[1], 10);
}

TEST_F(InLoop, ARootThatIsAFileForAWhileIsSurvived) {
  handler.allowFailures();
  Clients clients(*this, "t");
  auto& [writer, reader, incarnation] = clients;
  std::filesystem::remove_all(inRoot("t"));
  ASSERT_EQ(::close(::creat(inRoot("t").c_str(), 0644)), 0);
  EXPECT_TRUE(turnUntil([&] { return !handler.texts(0).empty(); }));
  EXPECT_EQ(reader.get(1)->a, 10);
  writer.put(2, {20, 0});
  ASSERT_EQ(::unlink(inRoot("t").c_str()), 0);
  EXPECT_TRUE(leaves(reader, incarnation));
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(handler.texts(0).size(), 1u);
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
