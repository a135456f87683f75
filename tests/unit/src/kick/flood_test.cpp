// SPDX-License-Identifier: MIT
//
// Peers that never stop sending: one event reads so many records and no more.
#include "fault/flood.h"
#include "support/reader_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned kAtOnce = 1024;

class FloodedWriterTest : public WriterTest {
 protected:
  FloodedWriterTest() {
    listen();
    reader = connectReader();
    writer->writerSequence = 5000;
    forget();
  }

  void expectReports(unsigned count) {
    sendBeforeEachRecv(count, [this] { reader.report(++reported); });
  }
  const ReaderKickClientSm& accepted() { return *writer->readers.at(client().fd()); }

  RawPeer reader;
  uint64_t reported = 0;
};

TEST_F(FloodedWriterTest, AnEventReadsSoManyReportsAndTheNextEventTheRest) {
  expectReports(kAtOnce + 500);
  client().fire();
  EXPECT_EQ(Fault::calls("recv"), kAtOnce);
  EXPECT_EQ(accepted().sequence, kAtOnce);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
  client().fire();
  EXPECT_EQ(Fault::calls("recv"), kAtOnce + 500 + 1);
  EXPECT_EQ(accepted().sequence, kAtOnce + 500);
  EXPECT_THAT(reader.received(), ElementsAre("#"));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(FloodedWriterTest, WhatWasReadIsHandledAsIfTheSocketWereEmpty) {
  expectReports(kAtOnce);
  writer->writerSequence = kAtOnce;
  client().fire();
  const std::string data =
      "ReaderKickClientSm::handleReaderData() socket:" + std::to_string(client().fd());
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(5, data), Logged(5, data + " reader sequence:1024 writer sequence:1024"),
                  Logged(5, data + " adding sleeping reader"),
                  Logged(5, "ReaderKickClientSm::kick() socket:" + std::to_string(client().fd())),
                  Logged(5, data + " acknowledged reader sequence")));
  EXPECT_EQ(writer->sleepingReaders.count(client().fd()), 1u);
}

TEST_F(FloodedWriterTest, OneReportLessIsReadUntilTheSocketIsEmpty) {
  expectReports(kAtOnce - 1);
  client().fire();
  EXPECT_EQ(Fault::calls("recv"), kAtOnce);
  EXPECT_EQ(accepted().sequence, kAtOnce - 1);
}

TEST_F(FloodedWriterTest, AViolationBehindThemIsForTheNextEvent) {
  handler.expectFailures();
  expectReports(kAtOnce);
  Fault::before("recv", kAtOnce + 1, [this] { reader.send("short"); });
  client().fire();
  EXPECT_THAT(reader.received(), ElementsAre("#"));
  EXPECT_EQ(writer->readers.size(), 1u);
  client().fire();
  EXPECT_THAT(writer->readers, IsEmpty());
}

TEST_F(FloodedWriterTest, AHangUpBehindThemIsForTheNextEvent) {
  expectReports(kAtOnce);
  Fault::before("recv", kAtOnce + 1, [this] { reader.close(); });
  client().fire();
  EXPECT_THAT(reader.received(), ElementsAre("#"));
  EXPECT_EQ(writer->readers.size(), 1u);
  client().fire();
  EXPECT_THAT(writer->readers, IsEmpty());
}

class FloodedReaderTest : public ReaderTest {
 protected:
  FloodedReaderTest() {
    connect();
    reader->enabled = true;
  }

  void expectKicks(unsigned count) {
    sendBeforeEachRecv(count, [this] { writerEnd.send("##"); });
  }
};

TEST_F(FloodedReaderTest, AnEventReadsSoManyRecordsAndTheNextEventTheRest) {
  reader->acknowledged = true;
  expectKicks(kAtOnce + 500);
  control().fire();
  EXPECT_EQ(Fault::calls("recv"), kAtOnce);
  EXPECT_THAT(handler.texts(5),
              testing::Contains("ReaderKickSm::handleKickFromWriter() read 2048 kicks"));
  EXPECT_THAT(platform.calls(), ElementsAre("readerSequence", "timer#0 cancel"));
  handler.clear();
  control().fire();
  EXPECT_EQ(Fault::calls("recv"), kAtOnce + 500 + 1);
  EXPECT_THAT(handler.texts(5),
              testing::Contains("ReaderKickSm::handleKickFromWriter() read 1000 kicks"));
  EXPECT_EQ(counters.conquerKicks, 2u);
}

TEST_F(FloodedReaderTest, TheRestOfAFirstBatchRunsAPass) {
  expectKicks(kAtOnce + 1);
  control().fire();
  EXPECT_THAT(platform.calls(), ElementsAre("writerAcknowledged"));
  control().fire();
  EXPECT_THAT(platform.calls(), ElementsAre("writerAcknowledged", "readerSequence",  //
                                            "timer#0 cancel"));
}

TEST_F(FloodedReaderTest, OneRecordLessIsReadUntilTheSocketIsEmpty) {
  expectKicks(kAtOnce - 1);
  control().fire();
  EXPECT_EQ(Fault::calls("recv"), kAtOnce);
}

TEST_F(FloodedReaderTest, AHangUpBehindThemIsForTheNextEvent) {
  expectKicks(kAtOnce);
  Fault::before("recv", kAtOnce + 1, [this] { writerEnd.close(); });
  control().fire();
  EXPECT_TRUE(reader->connected);
  EXPECT_EQ(counters.conquerKicks, 1u);
  control().fire();
  EXPECT_FALSE(reader->connected);
}

}  // namespace
}  // namespace Zorbe::Test
