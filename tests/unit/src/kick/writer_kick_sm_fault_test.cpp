// SPDX-License-Identifier: MIT
#include "support/kick_fixture.h"

#include <cerrno>
#include <system_error>
#include <typeinfo>
#include <utility>

namespace Zorbe::Test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class WriterKickSmFaultTest : public WriterTest {
 protected:
  WriterKickSmFaultTest() { handler.clobberErrno(EXDEV); }

  /// Two readers that wait for a kick, which is going to fail.
  std::pair<RawPeer, RawPeer> twoSleepers() {
    listen();
    RawPeer first = connectReader();
    RawPeer second = connectReader();
    report(first, 0, 0);
    report(second, 0, 1);
    handler.expectFailures();
    return {std::move(first), std::move(second)};
  }
};

TEST_F(WriterKickSmFaultTest, AFailingListenIsReportedInFullAndThrownInShort) {
  writer->createKickSocket();
  forget();
  handler.expectFailures();
  Fault::arm("listen", 1, EOPNOTSUPP);
  EXPECT_EQ(refusal([this] { writer->doEnableListen(); }),
            "WriterKickSm::doEnableListen() listen() failed ");
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(2, "WriterKickSm::doEnableListen() enabling socket " + table),
                          Logged(0, "WriterKickSm::doEnableListen() listen() failed " + table +
                                        " error: " + reason(EOPNOTSUPP))));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(WriterKickSmFaultTest, AfterAFailingListenTheLockIsHeldAndListeningCanBeTriedAgain) {
  writer->createKickSocket();
  handler.expectFailures();
  Fault::arm("listen", 1, EADDRINUSE);
  refusal([this] { writer->doEnableListen(); });
  EXPECT_TRUE(writer->kickSocketCreated);
  writer->doEnableListen();
  EXPECT_TRUE(RawPeer::connect(table).isOpen());
}

TEST_F(WriterKickSmFaultTest, AFailingLockLeavesNoSocket) {
  handler.expectFailures();
  Fault::arm("bind", 1, EACCES);
  refusal([this] { writer->createKickSocket(); });
  EXPECT_FALSE(writer->kickSocketCreated);
  EXPECT_EQ(writer->kickSocket, -1);
  EXPECT_THAT(handler.texts(3), IsEmpty());
}

TEST_F(WriterKickSmFaultTest, ALockSocketThatRefusesItsOptionStaysOpen) {
  handler.expectFailures();
  expectLeakedDescriptors(1);
  Fault::arm("setsockopt", 1, ENOMEM);
  refusal([this] { writer->createKickSocket(); });
  EXPECT_FALSE(writer->kickSocketCreated);
}

TEST_F(WriterKickSmFaultTest, ARefusedWatchKeepsTheLockAndMayBeTriedAgain) {
  writer->createKickSocket();
  platform.failWatch(ENOSPC);
  EXPECT_THROW(writer->doEnableListen(), std::system_error);
  EXPECT_THAT(platform.calls(), testing::Not(Contains("expectReconnects")));
  writer->doEnableListen();
  const RawPeer reader = RawPeer::connect(table);
  platform.fd(1).fire();
  EXPECT_EQ(writer->readers.size(), 1u);
}

TEST_F(WriterKickSmFaultTest, AFailingAcceptIsLoggedAndNothingElse) {
  listen();
  handler.expectFailures();
  for (const int error : {EMFILE, ECONNABORTED, EINTR}) {
    forget();
    Fault::arm("accept", 1, error);
    platform.fd(0).fire();
    EXPECT_EQ(handler.take(), failedAccept(error));
    EXPECT_THAT(platform.calls(), IsEmpty());
  }
  const RawPeer reader = connectReader();
  EXPECT_EQ(writer->readers.size(), 1u);
}

TEST_F(WriterKickSmFaultTest, AnAcceptedReaderThatCannotBeWatchedIsClosed) {
  listen();
  platform.failWatch(ENOSPC);
  const RawPeer reader = RawPeer::connect(table);
  EXPECT_THROW(platform.fd(0).fire(), std::system_error);
  EXPECT_THAT(platform.calls(),
              ElementsAre("fd#1 create", testing::StartsWith("fd#1 watch "), "fd#1 delete"));
  EXPECT_THAT(writer->readers, IsEmpty());
  EXPECT_TRUE(reader.isPeerClosed());
}

TEST_F(WriterKickSmFaultTest, ALockSocketThatFailsToCloseIsForgotten) {
  writer->createKickSocket();
  forget();
  handler.expectFailures();
  const std::string fd = std::to_string(writer->kickSocket);
  Fault::arm("close", 1, EIO).onFd(writer->kickSocket);
  writer->deleteKickSocket();
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "WriterKickSm::deleteKickSocket() called fd:" + fd),
                          Logged(0, "WriterKickSm::deleteKickSocket() close() failed fd:" + fd +
                                        " " + reason(EIO))));
  EXPECT_EQ(writer->kickSocket, -1);
  EXPECT_FALSE(writer->kickSocketCreated);
}

TEST_F(WriterKickSmFaultTest, ASleeperThatCannotBeKickedDoesNotKeepOthersAsleep) {
  auto [first, second] = twoSleepers();
  const uint64_t before = writer->kickCount;
  Fault::arm("send", 1, EPIPE);
  writer->doKickSleepers();
  EXPECT_EQ(writer->kickCount, before + 1);
  EXPECT_THAT(writer->sleepingReaders, IsEmpty());
  EXPECT_EQ(first.received().size() + second.received().size(), 3u);
  EXPECT_EQ(writer->readers.size(), 2u);
}

TEST_F(WriterKickSmFaultTest, SleepersOfWhomNoneCanBeKickedAreNotKickedAgain) {
  const auto sleepers = twoSleepers();
  const auto refused = Fault::arm("send", 1, EPIPE, Fault::kForever);
  writer->doKickSleepers();
  EXPECT_EQ(refused.fired(), 2u);
  EXPECT_THAT(writer->sleepingReaders, IsEmpty());
  writer->doKickSleepers();
  EXPECT_EQ(refused.fired(), 2u);
}

}  // namespace
}  // namespace Zorbe::Test
