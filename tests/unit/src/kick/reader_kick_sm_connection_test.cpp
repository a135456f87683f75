// SPDX-License-Identifier: MIT
#include "support/reader_fixture.h"

#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReaderKickSmConnectionTest : public ReaderTest {
 protected:
  int option(int name) {
    int value = 0;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(control().fd(), SOL_SOCKET, name, &value, &size), 0);
    return value;
  }

  /// Closes an acknowledged connection, and returns its descriptor.
  std::string closeAcknowledged(bool detaching) {
    connect();
    const std::string fd = number();
    noteCloseOf(control().fd());
    reader->acknowledged = true;
    reader->doCloseWriterConnection(detaching);
    EXPECT_THAT(handler.take(),
                ElementsAre(Logged(1, "ReaderKickSm::doCloseWriterConnection() closing: " + fd +
                                          " detaching: " + std::to_string(detaching))));
    EXPECT_FALSE(reader->connected || reader->acknowledged);
    return fd;
  }
};

TEST_F(ReaderKickSmConnectionTest, ConstructionTakesItsControlsAndOpensNothing) {
  TestReader another(platform, handler, root, counters);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::ReaderKickSm() " + table)));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#1 create", "fd#1 create"));
  EXPECT_EQ(Fault::calls("socket"), 0u);
  EXPECT_TRUE(another.initialized);
  EXPECT_FALSE(another.connected || another.acknowledged || another.enabled ||
               another.conquerAgain || another.notificationsDisabled);
  EXPECT_EQ(another.sentSequence, 0u);
}

TEST_F(ReaderKickSmConnectionTest, ConnectingWatchesNotifiesAndThenLogs) {
  startWriter();
  std::vector<Message> before;
  reader->onConnectionChanged = [&] { before = takeMessages(); };
  reader->doConnect();
  EXPECT_THAT(before, ElementsAre(Logged(5, "ReaderKickSm::doConnect()")));
  EXPECT_THAT(takeMessages(), ElementsAre(Logged(5, "ReaderKickSm::doConnect() socket:" + number() +
                                                        " connected to " + table)));
  EXPECT_THAT(platform.calls(),
              ElementsAre("fd#0 watch " + number(), "writerConnectionChanged up"));
  EXPECT_TRUE(reader->connected);
}

TEST_F(ReaderKickSmConnectionTest, TheConnectionKeepsRecordsAndNothingIsSentOnIt) {
  connect();
  EXPECT_EQ(option(SO_DOMAIN), AF_UNIX);
  EXPECT_EQ(option(SO_TYPE), SOCK_SEQPACKET);
  EXPECT_EQ(option(SO_REUSEADDR), 1);
  EXPECT_THAT(writerEnd.received(), IsEmpty());
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(ReaderKickSmConnectionTest, ConnectingWhileConnectedDoesNothing) {
  connect();
  const auto sockets = Fault::calls("socket");
  reader->doConnect();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::doConnect()")));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(Fault::calls("socket"), sockets);
}

TEST_F(ReaderKickSmConnectionTest, ConnectingBeforeInitialisationDoesNothing) {
  startWriter();
  reader->initialized = false;
  reader->doConnect();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::doConnect()")));
  EXPECT_EQ(Fault::calls("socket"), 0u);
  EXPECT_FALSE(reader->connected);
}

TEST_F(ReaderKickSmConnectionTest, WithoutAWriterTheReaderStaysDisconnected) {
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  const std::string fd = std::to_string(nextButOne());
  reader->doConnect();
  EXPECT_EQ(takeMessages(), failedConnect(fd, ECONNREFUSED));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_FALSE(reader->connected);
}

TEST_F(ReaderKickSmConnectionTest, ConnectsOnceAWriterIsThere) {
  handler.expectFailures();
  reader->doConnect();
  connect();
  EXPECT_TRUE(reader->connected);
}

TEST_F(ReaderKickSmConnectionTest, ClosingForgetsTheConnectionAndNotifies) {
  const std::string fd = closeAcknowledged(false);
  EXPECT_THAT(platform.calls(),
              ElementsAre("close " + fd, "fd#0 unwatch", "writerConnectionChanged down"));
  EXPECT_TRUE(writerEnd.isPeerClosed());
}

TEST_F(ReaderKickSmConnectionTest, DetachingClosesWithoutNotifying) {
  const std::string fd = closeAcknowledged(true);
  EXPECT_THAT(platform.calls(), ElementsAre("close " + fd, "fd#0 unwatch"));
}

TEST_F(ReaderKickSmConnectionTest, ClosingWithoutAConnectionFailsLoudlyAndNotifies) {
  handler.expectFailures();
  handler.clobberErrno(EXDEV);
  reader->doCloseWriterConnection(false);
  EXPECT_THAT(
      handler.take(),
      ElementsAre(
          Logged(1, "ReaderKickSm::doCloseWriterConnection() closing: -1 detaching: 0"),
          Logged(0, "ReaderKickSm::doCloseWriterConnection() error closing: -1 " + reason(EBADF))));
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerConnectionChanged down"));
}

TEST_F(ReaderKickSmConnectionTest, ReconnectsThroughTheSameControl) {
  connect();
  reader->doCloseWriterConnection(false);
  connect();
  EXPECT_EQ(platform.fdCount(), 1u);
  EXPECT_TRUE(control().watching());
  EXPECT_TRUE(reader->connected);
}

TEST_F(ReaderKickSmConnectionTest, MayReconnectFromWithinTheLossOfTheConnection) {
  connect();
  reader->enabled = true;
  reader->onConnectionChanged = [this] { reader->doConnect(); };
  writerEnd.close();
  control().fire();
  EXPECT_TRUE(reader->connected);
  EXPECT_TRUE(control().watching());
  EXPECT_TRUE(listening.accept().isOpen());
}

TEST_F(ReaderKickSmConnectionTest, MayCloseFromWithinTheConnecting) {
  startWriter();
  reader->onConnectionChanged = [this] {
    if (reader->connected) reader->doCloseWriterConnection(true);
  };
  reader->doConnect();
  EXPECT_FALSE(reader->connected);
  EXPECT_EQ(last(), (Message{5, "ReaderKickSm::doConnect() socket:-1 connected to " + table}));
}

TEST_F(ReaderKickSmConnectionTest, AnExceptionOfTheSubclassKeepsTheConnection) {
  startWriter();
  reader->onConnectionChanged = [] { throw std::logic_error("no"); };
  EXPECT_THROW(reader->doConnect(), std::logic_error);
  EXPECT_TRUE(reader->connected);
  reader->onConnectionChanged = nullptr;
  reader->doCloseWriterConnection(false);
  EXPECT_TRUE(listening.accept().isPeerClosed());
}

TEST_F(ReaderKickSmConnectionTest, AnExceptionOfTheSubclassKeepsNothingOfALostConnection) {
  connect();
  reader->onConnectionChanged = [] { throw std::logic_error("no"); };
  EXPECT_THROW(reader->doCloseWriterConnection(false), std::logic_error);
  EXPECT_FALSE(reader->connected);
  EXPECT_FALSE(control().watching());
  reader->onConnectionChanged = nullptr;
  connect();
}

TEST_F(ReaderKickSmConnectionTest, EventsShowTheDescriptorOfTheControl) {
  connect();
  reader->fdEvent(4711);
  EXPECT_EQ(first(), (Message{5, "ReaderKickSm::fdEvent() " + number()}));
  handler.clear();
  reader->timeout();
  EXPECT_EQ(first(), (Message{5, "ReaderKickSm::timeout() " + number()}));
  reader->doCloseWriterConnection(true);
  handler.clear();
  reader->fdEvent(4711);
  EXPECT_EQ(first(), (Message{5, "ReaderKickSm::fdEvent() -1"}));
}

TEST_F(ReaderKickSmConnectionTest, EventsThatAreNotLoggedDoNotAskForTheDescriptor) {
  connect();
  handler.setMaxLevel(3);
  const unsigned queries = control().queries();
  reader->fdEvent(0);
  reader->timeout();
  EXPECT_EQ(control().queries(), queries);
  EXPECT_THAT(handler.messages(), IsEmpty());
}

TEST_F(ReaderKickSmConnectionTest, DestructionClosesTheConnectionAndNotifiesNobody) {
  connect();
  const std::string fd = number();
  noteCloseOf(control().fd());
  reader.reset();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::~ReaderKickSm()")));
  EXPECT_THAT(platform.calls(), ElementsAre("close " + fd, "timer#0 delete", "fd#0 delete"));
  EXPECT_TRUE(writerEnd.isPeerClosed());
}

TEST_F(ReaderKickSmConnectionTest, DestructionOfANeverConnectedReaderClosesNothing) {
  reader.reset();
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "ReaderKickSm::~ReaderKickSm()")));
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 delete", "fd#0 delete"));
  EXPECT_EQ(Fault::calls("close"), 0u);
}

TEST_F(ReaderKickSmConnectionTest, ATableNameTooLongForASocketLeavesNoDescriptor) {
  handler.expectFailures();
  const RootPath longRoot(handler, std::string(92, 'x'), false);
  TestReader unreachable(platform, handler, longRoot, counters);
  EXPECT_THROW(unreachable.doConnect(), Brask::RuntimeException);
  EXPECT_FALSE(unreachable.connected);
}

}  // namespace
}  // namespace Zorbe::Test
