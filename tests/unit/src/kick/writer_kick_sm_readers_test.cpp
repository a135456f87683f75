// SPDX-License-Identifier: MIT
#include "support/kick_fixture.h"

#include <cerrno>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t kAllOnes = std::numeric_limits<uint64_t>::max();

class WriterKickSmReadersTest : public WriterTest {
 protected:
  WriterKickSmReadersTest() { listen(); }

  /// A reader that has caught up with `writerSequence` and has taken its first kick.
  RawPeer connectSleeper(size_t index) {
    RawPeer reader = connectReader();
    report(reader, writer->writerSequence, index);
    EXPECT_THAT(reader.received(), ElementsAre("#"));
    return reader;
  }
};

TEST_F(WriterKickSmReadersTest, AnAcceptedReaderIsWatchedAndReported) {
  const RawPeer reader = connectReader();
  const std::string fd = std::to_string(client().fd());
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(5, "WriterKickSm::handleReaderConnection() "),
                  Logged(5, "WriterKickSm::handleReaderConnection() accepted socket:" + fd)));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#1 create", "fd#1 watch " + fd, "readersChanged"));
}

TEST_F(WriterKickSmReadersTest, AnAcceptedReaderIsNeitherKickedNorAsleep) {
  RawPeer reader = connectReader();
  ASSERT_EQ(writer->readers.count(client().fd()), 1u);
  const ReaderKickClientSm& accepted = *writer->readers.at(client().fd());
  EXPECT_EQ(accepted.sequence, 0u);
  EXPECT_FALSE(accepted.acknowledged);
  EXPECT_EQ(accepted.owner, writer.get());
  EXPECT_THAT(writer->sleepingReaders, IsEmpty());
  writer->doKickSleepers();
  EXPECT_THAT(reader.received(), IsEmpty());
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(WriterKickSmReadersTest, TheReaderIsInTheMapWhenTheSubclassIsNotified) {
  size_t known = 0;
  writer->onReadersChanged = [&] { known = writer->readers.size(); };
  const RawPeer reader = connectReader();
  EXPECT_EQ(known, 1u);
}

TEST_F(WriterKickSmReadersTest, AcceptsOneReaderACallOnItsOwnDescriptor) {
  const RawPeer first = RawPeer::connect(table);
  const RawPeer second = RawPeer::connect(table);
  writer->fdEvent(-77);
  EXPECT_EQ(writer->readers.size(), 1u);
  writer->fdEvent(-77);
  EXPECT_EQ(writer->readers.size(), 2u);
}

TEST_F(WriterKickSmReadersTest, AnEventWithoutAConnectionIsLogged) {
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  writer->fdEvent(0);
  EXPECT_EQ(handler.take(), failedAccept(EAGAIN));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(WriterKickSmReadersTest, WithoutListeningThereIsNothingToAccept) {
  handler.expectFailures();
  writer->deleteKickSocket();
  forget();
  writer->handleReaderConnection();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "WriterKickSm::handleReaderConnection() "),
                          Logged(0, "WriterKickSm::handleReaderConnection() accept() sd:-1 " +
                                        reason(EBADF))));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(WriterKickSmReadersTest, WithoutReadersTheLowestSequenceIsAllOnes) {
  EXPECT_EQ(writer->lowestSequence(), kAllOnes);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(9, "WriterKickSm::lowestSequence(): 18446744073709551615")));
}

TEST_F(WriterKickSmReadersTest, TheLowestSequenceIsTheSmallestReport) {
  writer->writerSequence = 9;
  RawPeer first = connectReader();
  RawPeer second = connectReader();
  RawPeer third = connectReader();
  report(first, 9, 0);
  report(second, 4, 1);
  report(third, 6, 2);
  handler.clear();
  EXPECT_EQ(writer->lowestSequence(), 4u);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(9, "WriterKickSm::lowestSequence(): 4")));
}

TEST_F(WriterKickSmReadersTest, AReaderThatHasNotReportedKeepsTheLowestSequenceAtZero) {
  writer->writerSequence = 9;
  RawPeer talking = connectReader();
  RawPeer silent = connectReader();
  report(talking, 9, 0);
  handler.clear();
  EXPECT_EQ(writer->lowestSequence(), 0u);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(9, "WriterKickSm::lowestSequence(): 0")));
  writer->doKickSleepers();
  EXPECT_THAT(silent.received(), IsEmpty());
  silent.close();
  client(1).fire();
  EXPECT_EQ(writer->lowestSequence(), 9u);
}

TEST_F(WriterKickSmReadersTest, AReportOfZeroKeepsTheLowestSequenceAtZero) {
  writer->writerSequence = 9;
  RawPeer reader = connectReader();
  report(reader, 0);
  EXPECT_EQ(writer->lowestSequence(), 0u);
}

TEST_F(WriterKickSmReadersTest, WithoutSleepersNothingIsSent) {
  const RawPeer reader = connectReader();
  forget();
  writer->doKickSleepers();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(9, "WriterKickSm::doKickSleepers() " + table)));
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(WriterKickSmReadersTest, EverySleeperIsKickedOnce) {
  RawPeer first = connectSleeper(0);
  RawPeer second = connectSleeper(1);
  RawPeer awake = connectReader();
  forget();
  const uint64_t before = writer->kickCount;
  writer->doKickSleepers();
  const std::string kick = "ReaderKickClientSm::kick() socket:";
  auto messages = handler.take();
  ASSERT_EQ(messages.size(), 4u);
  EXPECT_EQ(messages[0], (Message{9, "WriterKickSm::doKickSleepers() " + table}));
  EXPECT_EQ(messages[1], (Message{5, "WriterKickSm::doKickSleepers() sleepingReaders: 2"}));
  messages.erase(messages.begin(), messages.begin() + 2);
  EXPECT_THAT(messages,
              testing::UnorderedElementsAre(Logged(5, kick + std::to_string(client(0).fd())),
                                            Logged(5, kick + std::to_string(client(1).fd()))));
  EXPECT_EQ(writer->kickCount, before + 2);
  EXPECT_THAT(first.received(), ElementsAre("#"));
  EXPECT_THAT(second.received(), ElementsAre("#"));
  EXPECT_THAT(awake.received(), IsEmpty());
}

TEST_F(WriterKickSmReadersTest, AKickedSleeperIsAwakeUntilItReportsAgain) {
  RawPeer reader = connectSleeper(0);
  writer->writerSequence = 1;
  writer->doKickSleepers();
  EXPECT_THAT(reader.received(), ElementsAre("#"));
  writer->doKickSleepers();
  EXPECT_THAT(reader.received(), IsEmpty());
  report(reader, 1);
  writer->doKickSleepers();
  EXPECT_THAT(reader.received(), ElementsAre("#"));
}

TEST_F(WriterKickSmReadersTest, ASleeperThatLeavesIsInNeitherMap) {
  RawPeer leaving = connectSleeper(0);
  RawPeer staying = connectSleeper(1);
  leaving.close();
  client(0).fire();
  EXPECT_THAT(writer->readers, ElementsAre(testing::Pair(client(1).fd(), testing::_)));
  EXPECT_THAT(writer->sleepingReaders, ElementsAre(testing::Pair(client(1).fd(), testing::_)));
  writer->doKickSleepers();
  EXPECT_THAT(staying.received(), ElementsAre("#"));
}

TEST_F(WriterKickSmReadersTest, ClosingAConnectionDestroysItBeforeNotifying) {
  const RawPeer reader = connectReader();
  const int fd = client().fd();
  forget();
  noteCloseOf(fd);
  size_t known = 1;
  writer->onReadersChanged = [&] { known = writer->readers.size(); };
  writer->doCloseReaderConnection(fd, writer->readers.at(fd));
  const std::string number = std::to_string(fd);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "WriterKickSm::doCloseReaderConnection() socket:" + number),
                          Logged(5, "ReaderKickClientSm::~ReaderKickClientSm()"),
                          Logged(5, "ReaderKickClientSm::~ReaderKickClientSm() socket:" + number)));
  EXPECT_THAT(platform.calls(), ElementsAre("close " + number, "fd#1 delete", "readersChanged"));
  EXPECT_EQ(known, 0u);
  EXPECT_TRUE(reader.isPeerClosed());
}

TEST_F(WriterKickSmReadersTest, ClosingWithoutAClientOnlyNotifies) {
  writer->doCloseReaderConnection(4711, nullptr);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "WriterKickSm::doCloseReaderConnection() socket:4711")));
  EXPECT_THAT(platform.calls(), ElementsAre("readersChanged"));
}

TEST_F(WriterKickSmReadersTest, AnExceptionOfTheSubclassKeepsTheAcceptedReader) {
  writer->onReadersChanged = [] { throw std::logic_error("no"); };
  const RawPeer reader = RawPeer::connect(table);
  EXPECT_THROW(platform.fd(0).fire(), std::logic_error);
  writer->onReadersChanged = nullptr;
  EXPECT_EQ(writer->readers.size(), 1u);
  EXPECT_FALSE(reader.isPeerClosed());
}

TEST_F(WriterKickSmReadersTest, AnExceptionOfTheSubclassKeepsNothingOfAClosedReader) {
  RawPeer reader = connectSleeper(0);
  writer->onReadersChanged = [] { throw std::logic_error("no"); };
  reader.close();
  EXPECT_THROW(client().fire(), std::logic_error);
  EXPECT_TRUE(client().isDeleted());
  EXPECT_THAT(writer->readers, IsEmpty());
  EXPECT_THAT(writer->sleepingReaders, IsEmpty());
}

TEST_F(WriterKickSmReadersTest, TheSubclassMayDeleteTheSocketWhenNotifiedOfAReader) {
  writer->onReadersChanged = [this] { writer->deleteKickSocket(); };
  const RawPeer reader = connectReader();
  EXPECT_TRUE(client().isDeleted());
  EXPECT_TRUE(platform.fd(0).isDeleted());
  EXPECT_TRUE(reader.isPeerClosed());
}

TEST_F(WriterKickSmReadersTest, TheSubclassMayDeleteTheSocketWhenAReaderLeaves) {
  RawPeer reader = connectSleeper(0);
  writer->onReadersChanged = [this] { writer->deleteKickSocket(); };
  reader.close();
  client().fire();
  EXPECT_TRUE(platform.fd(0).isDeleted());
  EXPECT_EQ(writer->kickSocket, -1);
}

TEST_F(WriterKickSmReadersTest, ASilentHandlerIsGivenNothingAndNoReasonIsLookedUp) {
  forget();
  handler.setMaxLevel(RecordingHandler::kNothing);
  const auto lookedUp = Fault::calls("strerror");
  RawPeer reader = connectSleeper(0);
  writer->doKickSleepers();
  writer->fdEvent(0);
  reader.send("x");
  client().fire();
  EXPECT_THAT(writer->readers, IsEmpty());
  EXPECT_THAT(handler.messages(), IsEmpty());
  EXPECT_EQ(Fault::calls("strerror"), lookedUp);
}

}  // namespace
}  // namespace Zorbe::Test
