// SPDX-License-Identifier: MIT
#include "support/kick_fixture.h"

#include <typeinfo>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class WriterKickSmTest : public WriterTest {
 protected:
  std::string socketNumber() const { return std::to_string(writer->kickSocket); }
  bool lockIsFree() {
    TestWriter rival(platform, handler, root);
    try {
      rival.createKickSocket();
      return true;
    } catch (const DuplicateWriterException&) {
      return false;
    }
  }
};

TEST_F(WriterKickSmTest, ConstructionOpensNothingAndLogsNothing) {
  EXPECT_THAT(handler.messages(), IsEmpty());
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(Fault::calls("socket"), 0u);
  EXPECT_FALSE(writer->kickSocketCreated);
  EXPECT_EQ(writer->kickSocket, -1);
  EXPECT_EQ(writer->writerSequence, 0u);
  EXPECT_EQ(writer->kickCount, 0u);
}

TEST_F(WriterKickSmTest, CreatingTheSocketTakesTheWriterLock) {
  writer->createKickSocket();
  EXPECT_EQ(first(), (Message{5, "WriterKickSm::createKickSocket() creating socket"}));
  EXPECT_EQ(last(), (Message{3, "WriterKickSm::createKickSocket() success " + table + " local:0"}));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_TRUE(writer->kickSocketCreated);
  handler.expectFailures();
  EXPECT_FALSE(lockIsFree());
}

TEST_F(WriterKickSmTest, TheSecondWriterIsRefusedAndHasNoSocket) {
  writer->createKickSocket();
  handler.expectFailures();
  TestWriter second(platform, handler, root);
  EXPECT_THROW(second.createKickSocket(), DuplicateWriterException);
  EXPECT_FALSE(second.kickSocketCreated);
  EXPECT_EQ(second.kickSocket, -1);
  writer->deleteKickSocket();
  second.createKickSocket();
  EXPECT_GE(second.kickSocket, 0);
}

TEST_F(WriterKickSmTest, CreatingTheSocketTwiceKeepsTheFirst) {
  writer->createKickSocket();
  const int first = writer->kickSocket;
  handler.expectFailures();
  EXPECT_THROW(writer->createKickSocket(), DuplicateWriterException);
  EXPECT_EQ(writer->kickSocket, first);
  EXPECT_TRUE(writer->kickSocketCreated);
}

TEST_F(WriterKickSmTest, ALocalWriterUsesNoSocket) {
  TestWriter local(platform, handler, root, true);
  local.returning = 1;
  local.createKickSocket();
  local.doEnableListen();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(3, "WriterKickSm::createKickSocket() success " +
                                                        table + " local:1")));
  EXPECT_TRUE(local.kickSocketCreated);
  EXPECT_EQ(local.kickSocket, -1);
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(Fault::calls("socket"), 0u);
  EXPECT_EQ(local.lowestSequence(), std::numeric_limits<uint64_t>::max());
  EXPECT_TRUE(lockIsFree());
}

TEST_F(WriterKickSmTest, ALocalWriterHasNothingToClose) {
  auto local = std::make_unique<TestWriter>(platform, handler, root, true);
  local->createKickSocket();
  forget();
  local.reset();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "WriterKickSm::deleteKickSocket() called fd:-1")));
  EXPECT_EQ(Fault::calls("close"), 0u);
}

TEST_F(WriterKickSmTest, ListeningNeedsASocket) {
  try {
    writer->doEnableListen();
    FAIL() << "nothing was thrown";
  } catch (const Brask::Exception& refusal) {
    EXPECT_EQ(typeid(refusal), typeid(Brask::RuntimeException));
    EXPECT_STREQ(refusal.what(), "WriterKickSm::doEnableListen() no socket");
  }
  EXPECT_THAT(handler.messages(), IsEmpty());
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(WriterKickSmTest, ListensAndThenQueriesTheExpectedReconnects) {
  writer->createKickSocket();
  forget();
  writer->doEnableListen();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(2, "WriterKickSm::doEnableListen() enabling socket " + table)));
  EXPECT_THAT(platform.calls(),
              ElementsAre("fd#0 create", "fd#0 watch " + socketNumber(), "expectReconnects"));
  EXPECT_EQ(platform.timerCount(), 0u);
  EXPECT_TRUE(RawPeer::connect(table).isOpen());
}

TEST_F(WriterKickSmTest, ReturningReadersAreAwaitedForThirtySeconds) {
  for (const int answer : {1, -1, 7}) {
    const auto index = platform.timerCount();
    TestWriter expecting(platform, handler, root);
    expecting.returning = answer;
    expecting.createKickSocket();
    platform.takeCalls();
    expecting.doEnableListen();
    const auto calls = platform.takeCalls();
    const std::string timer = "timer#" + std::to_string(index);
    EXPECT_THAT(std::vector<std::string>(calls.begin() + 2, calls.end()),
                ElementsAre("expectReconnects", timer + " create", timer + " start 30"));
  }
}

TEST_F(WriterKickSmTest, SixConnectionsWaitForABacklogOfFive) {
  listen();
  std::vector<RawPeer> waiting;
  for (int count = 0; count < 6; ++count) {
    waiting.push_back(RawPeer::connect(table));
    EXPECT_TRUE(waiting.back().isOpen()) << count;
  }
  EXPECT_FALSE(RawPeer::connect(table).isOpen());
}

TEST_F(WriterKickSmTest, TheEndOfTheWaitIsReportedAfterTheTimerIsDeleted) {
  writer->returning = 1;
  listen();
  platform.timer(0).fire();
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(1,
                         "WriterKickSm::handleReaderConnectionTimeout() timed out waiting for all "
                         "previously connected readers to reconnect")));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 cancel", "timer#0 delete", "readersChanged"));
  EXPECT_EQ(writer->reconnectTimer, nullptr);
}

TEST_F(WriterKickSmTest, ReturningReadersDoNotEndTheWait) {
  writer->returning = 1;
  listen();
  const RawPeer reader = connectReader();
  EXPECT_TRUE(platform.timer(0).armed());
  EXPECT_FALSE(platform.timer(0).isDeleted());
}

TEST_F(WriterKickSmTest, ATimeoutWithoutATimerOnlyNotifies) {
  writer->timeout();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(1, testing::_)));
  EXPECT_THAT(platform.calls(), ElementsAre("readersChanged"));
}

TEST_F(WriterKickSmTest, ListeningAgainReplacesControlAndTimer) {
  writer->returning = 1;
  listen();
  writer->doEnableListen();
  EXPECT_TRUE(platform.fd(0).isDeleted());
  EXPECT_EQ(platform.fd(1).fd(), writer->kickSocket);
  EXPECT_TRUE(platform.timer(0).isDeleted());
  EXPECT_TRUE(platform.timer(1).armed());
  const RawPeer reader = RawPeer::connect(table);
  platform.fd(1).fire();
  EXPECT_EQ(writer->readers.size(), 1u);
}

TEST_F(WriterKickSmTest, DeletingTheSocketReleasesTheLockFirst) {
  writer->returning = 1;
  listen();
  const RawPeer reader = connectReader();
  forget();
  const std::string listening = socketNumber();
  const std::string accepted = std::to_string(client().fd());
  noteCloseOf(writer->kickSocket);
  noteCloseOf(client().fd());
  writer->deleteKickSocket();
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(5, "WriterKickSm::deleteKickSocket() called fd:" + listening),
                  Logged(5, "ReaderKickClientSm::~ReaderKickClientSm()"),
                  Logged(5, "ReaderKickClientSm::~ReaderKickClientSm() socket:" + accepted)));
  EXPECT_THAT(platform.calls(),
              ElementsAre("close " + listening, "fd#0 delete", "close " + accepted, "fd#1 delete"));
  EXPECT_TRUE(platform.timer(0).armed());
  EXPECT_TRUE(reader.isPeerClosed());
}

TEST_F(WriterKickSmTest, DeletingTheSocketLeavesTheWriterAsAtFirst) {
  listen();
  RawPeer reader = connectReader();
  report(reader, 0);
  writer->deleteKickSocket();
  EXPECT_FALSE(writer->kickSocketCreated);
  EXPECT_EQ(writer->kickSocket, -1);
  EXPECT_EQ(writer->listenControl, nullptr);
  EXPECT_THAT(writer->readers, IsEmpty());
  EXPECT_THAT(writer->sleepingReaders, IsEmpty());
  EXPECT_THROW(writer->doEnableListen(), Brask::RuntimeException);
  EXPECT_TRUE(lockIsFree());
}

TEST_F(WriterKickSmTest, DeletingTheSocketTwiceClosesOnce) {
  writer->createKickSocket();
  writer->deleteKickSocket();
  forget();
  const auto closed = Fault::calls("close");
  writer->deleteKickSocket();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "WriterKickSm::deleteKickSocket() called fd:-1")));
  EXPECT_EQ(Fault::calls("close"), closed);
}

TEST_F(WriterKickSmTest, TheSocketCanBeCreatedAgain) {
  listen();
  writer->deleteKickSocket();
  writer->createKickSocket();
  writer->doEnableListen();
  EXPECT_TRUE(RawPeer::connect(table).isOpen());
}

TEST_F(WriterKickSmTest, DestructionDeletesTheSocketAndThenTheTimer) {
  writer->returning = 1;
  listen();
  const std::string listening = socketNumber();
  noteCloseOf(writer->kickSocket);
  writer.reset();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "WriterKickSm::deleteKickSocket() called fd:" + listening)));
  EXPECT_THAT(platform.calls(), ElementsAre("close " + listening, "fd#0 delete", "timer#0 delete"));
}

TEST_F(WriterKickSmTest, DestructionWithoutASocketLogsNothing) {
  writer.reset();
  EXPECT_THAT(handler.messages(), IsEmpty());
  EXPECT_EQ(Fault::calls("close"), 0u);
}

TEST_F(WriterKickSmTest, TheSocketIsAlwaysValid) {
  EXPECT_TRUE(writer->validateSocket());
}

TEST_F(WriterKickSmTest, KeepsItsOwnCopyOfTheRootPath) {
  auto temporary = std::make_unique<RootPath>(handler, "quotes", false);
  TestWriter copying(platform, handler, *temporary);
  temporary->path = "/elsewhere";
  temporary.reset();
  forget();
  copying.doKickSleepers();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(9, "WriterKickSm::doKickSleepers() " + table)));
}

}  // namespace
}  // namespace Zorbe::Test
