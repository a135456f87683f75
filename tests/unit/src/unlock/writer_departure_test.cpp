// SPDX-License-Identifier: MIT
#include "fault/flood.h"
#include "unit/src/unlock/unlock_fixture.h"

#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class WriterDepartureTest : public UnlockTest {
 protected:
  std::vector<Message> storyOfDeparture(int fd, const std::string& cause) const {
    const std::string number = std::to_string(fd);
    return {{5, label("fdEvent") + ", fd=" + number},
            {5, label("handleFdEvent")},
            {9, label("handleFdEvent") + ", recv() returned 0"},
            {5, label("handleFdEvent") + cause},
            {5, label("notifyUnlocked") + " turning off notifications"},
            {2, "WriterUnlockSm::doDisconnect() closing for instanceName=label, fd=" + number}};
  }
};

TEST_F(WriterDepartureTest, ReportsAnOrderlyEndOnce) {
  connect();
  const int fd = watched();
  stopWriter();
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
  EXPECT_EQ(handler.take(),
            storyOfDeparture(fd, " notifying because we've disconnected gracefully"));
}

TEST_F(WriterDepartureTest, AWriterThatGoesBeforeItAcceptsIsReportedToo) {
  startWriter();
  reader->doConnect();
  stopWriter();
  platform.takeCalls();
  handler.clear();
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
}

TEST_F(WriterDepartureTest, AWriterThatLeftSomethingUnreadIsReportedAsReset) {
  connect();
  const std::string fd = std::to_string(watched());
  EXPECT_EQ(send(watched(), "x", 1, 0), 1);
  stopWriter();
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked"));
  EXPECT_THAT(
      handler.texts(5),
      ElementsAre(label("fdEvent") + ", fd=" + fd, label("handleFdEvent"),
                  label("handleFdEvent") + " notifying because we've disconnected with ECONNRESET",
                  label("notifyUnlocked") + " turning off notifications"));
  EXPECT_THAT(handler.texts(9), ElementsAre(label("handleFdEvent") + ", recv() returned -1"));
}

TEST_F(WriterDepartureTest, ClosesTheDescriptorBeforeItReports) {
  connect();
  const int fd = watched();
  reader->onUnlocked = [&] { EXPECT_EQ(close(fd), -1); };
  stopWriter();
  platform.fd(0).fire();
  EXPECT_EQ(platform.calls().back(), "writerUnlocked");
}

TEST_F(WriterDepartureTest, DropsWhatTheWriterSends) {
  connect();
  writersEnd.send("12345");
  writersEnd.send(std::string(40, 'x'));
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_THAT(handler.texts(9), ElementsAre(label("handleFdEvent") + ", recv() returned 5",
                                            label("handleFdEvent") + ", recv() returned 32",
                                            label("handleFdEvent") + ", recv() returned -1"));
  EXPECT_TRUE(platform.fd(0).watching());
}

TEST_F(WriterDepartureTest, AnEventReadsSoManyRecordsAndTheNextEventTheRest) {
  connect();
  sendBeforeEachRecv(1024, [this] { writersEnd.send("x"); });
  Fault::before("recv", 1025, [this] { stopWriter(); });
  platform.fd(0).fire();
  EXPECT_EQ(Fault::calls("recv"), 1024u);
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_TRUE(platform.fd(0).watching());
  platform.fd(0).fire();
  EXPECT_EQ(Fault::calls("recv"), 1025u);
  EXPECT_EQ(platform.calls().back(), "writerUnlocked");
}

TEST_F(WriterDepartureTest, ASpuriousEventKeepsTheConnection) {
  connect();
  const std::string fd = std::to_string(watched());
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(5, label("fdEvent") + ", fd=" + fd), Logged(5, label("handleFdEvent")),
                  Logged(9, label("handleFdEvent") + ", recv() returned -1")));
}

TEST_F(WriterDepartureTest, LogsTheDescriptorItWatchesForAnyArgument) {
  connect();
  reader->fdEvent(4711);
  EXPECT_EQ(handler.messages().front().text,
            label("fdEvent") + ", fd=" + std::to_string(watched()));
}

TEST_F(WriterDepartureTest, DoesNotCancelTheTimerWhenTheConnectionEnds) {
  connect();
  stopWriter();
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), testing::Not(testing::Contains("timer#0 cancel")));
}

TEST_F(WriterDepartureTest, MayBeConnectedAgainFromTheReport) {
  connect();
  reader->onUnlocked = [&] { reader->doConnect(); };
  stopWriter();
  platform.fd(0).fire();
  EXPECT_THAT(platform.calls(), ElementsAre("fd#0 unwatch", "writerUnlocked", "timer#0 start 0.1"));
  startWriter();
  platform.timer(0).fire();
  EXPECT_TRUE(platform.fd(0).watching());
}

}  // namespace
}  // namespace Zorbe::Test
