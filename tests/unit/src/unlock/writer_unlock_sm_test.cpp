// SPDX-License-Identifier: MIT
#include "support/descriptor_zero.h"
#include "unit/src/unlock/unlock_fixture.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <type_traits>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_base_of_v<Brask::Platform::TimeoutHandler, WriterUnlockSm>);
static_assert(std::is_base_of_v<Brask::Platform::FdEventHandler, WriterUnlockSm>);
static_assert(std::is_base_of_v<Brask::Debuggable, WriterUnlockSm>);
static_assert(std::is_abstract_v<WriterUnlockSm>);

class WriterUnlockSmTest : public UnlockTest {
 protected:
  std::string calls(const std::string& call) { return call + " " + std::to_string(watched()); }
};

TEST_F(WriterUnlockSmTest, TakesItsControlsAndOpensNoSocket) {
  Fault::reset();
  const Reader another(handler, root, platform);
  EXPECT_THAT(platform.calls(), ElementsAre("timer#1 create", "fd#1 create"));
  EXPECT_EQ(Fault::calls("socket"), 0u);
  EXPECT_EQ(another.label(), "label");
  EXPECT_EQ(another.root().path, root.path);
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, label("WriterUnlockSm") + ", rootPath=" + root.path)));
}

TEST_F(WriterUnlockSmTest, DeletesItsControlsAndNotifiesNobody) {
  reader.reset();
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 delete", "fd#0 delete"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, label("~WriterUnlockSm"))));
}

TEST_F(WriterUnlockSmTest, ConnectsToTheWriterAndWatches) {
  startWriter();
  reader->doConnect();
  const std::string fd = std::to_string(watched());
  EXPECT_GE(watched(), 0);
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 watch " + fd, "timer#0 cancel"));
  EXPECT_THAT(takeOwn(), ElementsAre(Logged(5, label("doConnect")),
                                     Logged(5, "WriterUnlockSm::doConnect() socket:" + fd +
                                                   " connected to " + root.path)));
}

TEST_F(WriterUnlockSmTest, LogsWhatItDoesBeforeItOpensTheSocket) {
  startWriter();
  reader->doConnect();
  EXPECT_THAT(handler.messages().front(), Logged(5, label("doConnect")));
  EXPECT_THAT(handler.messages().at(4),
              Logged(2, "Util::createSockaddr() " + root.path + " using abstract socket " +
                            table.abstractName()));
}

TEST_F(WriterUnlockSmTest, TheSocketIsReusableAndSequenced) {
  connect();
  for (const auto& [name, expected] :
       {std::pair(SO_DOMAIN, AF_UNIX), {SO_TYPE, SOCK_SEQPACKET}, {SO_REUSEADDR, 1}}) {
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(watched(), SOL_SOCKET, name, &value, &length), 0);
    EXPECT_EQ(value, expected) << "option " << name;
  }
}

TEST_F(WriterUnlockSmTest, SendsTheWriterNothing) {
  startWriter();
  reader->doConnect();
  const RawPeer accepted = writer.accept();
  EXPECT_THAT(accepted.received(), IsEmpty());
  EXPECT_FALSE(accepted.isPeerClosed());
  EXPECT_EQ(Fault::calls("send"), 0u);
}

TEST_F(WriterUnlockSmTest, ReportsAWriterThatIsNotThereOnceFromTheTimer) {
  reader->doConnect();
  EXPECT_THAT(platform.takeCalls(), ElementsAre("timer#0 start 0.1"));
  EXPECT_EQ(watched(), -1);
  platform.timer(0).fire();
  EXPECT_THAT(platform.calls(), ElementsAre("writerUnlocked"));
  EXPECT_FALSE(platform.timer(0).armed());
}

TEST_F(WriterUnlockSmTest, AnOldErrorDoesNotHideTheEndOfAConnection) {
  connect();
  stopWriter();
  handler.clobberErrno(EAGAIN);
  errno = EAGAIN;
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), testing::Contains("writerUnlocked"));
}

TEST_F(WriterUnlockSmTest, AConnectionAtDescriptorZeroIsClosedWithIt) {
  const DescriptorZero zero;
  zero.freeBefore("socket");
  connect();
  EXPECT_EQ(watched(), 0);
  reader.reset();
  EXPECT_FALSE(DescriptorZero::isOpen());
}

TEST_F(WriterUnlockSmTest, TheEndOfAConnectionAtDescriptorZeroIsADepartureAndClosesIt) {
  const DescriptorZero zero;
  zero.freeBefore("socket");
  connect();
  stopWriter();
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), testing::Contains("writerUnlocked"));
  EXPECT_FALSE(DescriptorZero::isOpen());
}

TEST_F(WriterUnlockSmTest, LogsThatItCouldNotConnect) {
  const int lowestFree = dup(0);
  EXPECT_EQ(close(lowestFree), 0);
  // The socket gets the number after that of the namespace, which is open meanwhile.
  reader->doConnect();
  const auto messages = takeOwn();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_THAT(messages[0], Logged(5, label("doConnect")));
  EXPECT_THAT(messages[1],
              Logged(5, "WriterUnlockSm::doConnect() connect() socket:" +
                            std::to_string(lowestFree + 1) + " " + root.path +
                            " couldn't connect: Connection refused. Retrying doConnect() "
                            "later"));
}

TEST_F(WriterUnlockSmTest, TheTimerEndsInNotifyUnlockedWithoutAMessageOfItsOwn) {
  reader->doConnect();
  handler.clear();
  platform.timer(0).fire();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, label("notifyUnlocked") + " turning off notifications"),
                          Logged(2,
                                 "WriterUnlockSm::doDisconnect() closing for "
                                 "instanceName=label, fd=-1")));
}

TEST_F(WriterUnlockSmTest, AWriterThatIsBoundButDoesNotListenIsNone) {
  const RawPeer bound = RawPeer::bind(root.path);
  reader->doConnect();
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 start 0.1"));
}

TEST_F(WriterUnlockSmTest, AWriterThatComesInTimeCancelsTheReport) {
  reader->doConnect();
  startWriter();
  reader->doConnect();
  EXPECT_FALSE(platform.timer(0).armed());
  EXPECT_THAT(platform.calls(),
              ElementsAre("timer#0 start 0.1", calls("fd#0 watch"), "timer#0 cancel"));
}

TEST_F(WriterUnlockSmTest, DisconnectingClosesAndUnwatchesWithoutAReport) {
  connect();
  const std::string fd = std::to_string(watched());
  reader->doDisconnect();
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2,
                                                 "WriterUnlockSm::doDisconnect() closing for "
                                                 "instanceName=label, fd=" +
                                                     fd)));
  EXPECT_TRUE(writersEnd.isPeerClosed());
}

TEST_F(WriterUnlockSmTest, DisconnectingNothingOnlyLogs) {
  Fault::reset();
  reader->doDisconnect();
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(Fault::calls("close"), 0u);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2,
                                                 "WriterUnlockSm::doDisconnect() closing for "
                                                 "instanceName=label, fd=-1")));
}

TEST_F(WriterUnlockSmTest, ADelayedReportStaysDueWhenItDisconnects) {
  reader->doConnect();
  reader->doDisconnect();
  EXPECT_TRUE(platform.timer(0).armed());
}

TEST_F(WriterUnlockSmTest, NotifyUnlockedEndsTheConnectionAndReports) {
  connect();
  reader->notifyUnlocked();
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
  EXPECT_EQ(watched(), -1);
}

TEST_F(WriterUnlockSmTest, ConnectingTwiceWatchesTheSecondAndLeavesTheFirstOpen) {
  connect();
  const int first = watched();
  reader->doConnect();
  const RawPeer second = writer.accept();
  EXPECT_NE(watched(), first);
  EXPECT_THAT(platform.calls(), ElementsAre(calls("fd#0 watch"), "timer#0 cancel"));
  EXPECT_EQ(send(first, "x", 1, 0), 1);
  EXPECT_EQ(close(first), 0);
}

TEST_F(WriterUnlockSmTest, ClosesTheConnectionWhenItIsDestroyedAndNotifiesNobody) {
  connect();
  reader.reset();
  EXPECT_THAT(platform.calls(), ElementsAre("timer#0 delete", "fd#0 delete"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, label("~WriterUnlockSm"))));
  EXPECT_TRUE(writersEnd.isPeerClosed());
}

TEST_F(WriterUnlockSmTest, MayBeDestroyedWithAReportPending) {
  reader->doConnect();
  reader.reset();
  EXPECT_TRUE(platform.timer(0).isDeleted());
}

TEST_F(WriterUnlockSmTest, EvaluatesNothingThatOnlyAMessageNeeds) {
  handler.setMaxLevel(4);
  connect();
  EXPECT_EQ(platform.fd(0).queries(), 0u);
  platform.fd(0).fire();
  EXPECT_EQ(platform.fd(0).queries(), 1u);  // for recv
}

TEST_F(WriterUnlockSmTest, ANameThatDoesNotFitLeavesNothingOpen) {
  const RootPath longNamed(quiet, std::string(92, 'q'), false);
  Reader another(handler, longNamed, platform);
  handler.expectFailures();
  EXPECT_THROW(another.doConnect(), Brask::RuntimeException);
  EXPECT_EQ(handler.messages().back().text, "Util::createSockaddr() zorbeName too large " +
                                                std::string(92, 'q') + " for 108 sockaddr_un");
}

}  // namespace
}  // namespace Zorbe::Test
