// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "process/process_fixture.h"
#include "support/raw_peer.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

constexpr unsigned kManyConnections = 1000;
constexpr unsigned kSpareDescriptors = 50;

// All in one process, whose loop connects them one by one: the queue of pending connections
// is short.
void runCrowd(Channel& parent, SharedTable& table) {
  ProcessContext context;
  std::vector<std::unique_ptr<TableReader>> readers;
  for (unsigned i = 0; i < kManyConnections; ++i) {
    readers.push_back(std::make_unique<TableReader>(context.handler, context.root, table));
    readers.back()->doConnect();
    EXPECT_TRUE(readers.back()->isConnected());
    context.loop.turn(0);
  }
  parent.send("connected");
  const auto goal = std::stoull(parent.awaitLine("reach ").substr(6));
  for (const auto& reader : readers) {
    EXPECT_TRUE(turnUntil(context.loop, [&] { return reader->at() == goal; }));
  }
  while (context.loop.turn(0)) continue;
  parent.send("at the goal");
  parent.await("leave");
}

class Connections : public ProcessTest {};

TEST_F(Connections, OneWriterServesAThousandReaders) {
  if (!allowDescriptors(kManyConnections + kSpareDescriptors)) {
    GTEST_SKIP() << "the hard limit of open descriptors is below "
                 << kManyConnections + kSpareDescriptors;
  }
  const std::string everybody = " " + std::to_string(kManyConnections);
  const Child writer = startWriter();
  const Child crowd = start("crowd", [this](Channel& parent) { runCrowd(parent, table); });
  crowd->await("connected");
  writer->send("caught up" + everybody);
  writer->await("caught up" + everybody);
  writer->send("publish 3");
  crowd->send("reach 3");
  crowd->await("at the goal");
  writer->send("caught up" + everybody);
  writer->await("caught up" + everybody);
  leave(crowd);
  writer->send("readers 0");
  writer->await("readers 0");
  leave(writer);
}

TEST_F(Connections, TenThousandConnectionsLeaveNoDescriptorOpen) {
  ProcessContext context(
      -1);  // each end may leave the other's last message unread, which is logged
  TableWriter writer(context.handler, context.root, table);
  TableReader reader(context.handler, context.root, table);
  writer.open();
  writer.publish();
  const Census before = Census::take();
  for (int i = 0; i < 10000; ++i) {
    reader.doConnect();
    ASSERT_TRUE(turnUntil(context.loop, [&] { return reader.at() == 1 && writer.allCaughtUp(); }));
    reader.doCloseWriterConnection(true);
    ASSERT_TRUE(turnUntil(context.loop, [&] { return writer.readers.empty(); }));
  }
  EXPECT_EQ(before.difference(Census::take()), "");
  EXPECT_EQ(writer.changes, 20000u);
}

void runKickerOfAVanishedReader(Channel&, SharedTable& table) {
  ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
  ProcessContext context;
  TableWriter writer(context.handler, context.root, table);
  writer.open();
  {
    const RawPeer peer = RawPeer::connect(context.root.path);
    peer.report(0);
    EXPECT_TRUE(turnUntil(context.loop, [&] { return writer.sleepingReaders.size() == 1; }));
    EXPECT_TRUE(peer.awaitKick());
  }
  writer.publish();
  EXPECT_EQ(writer.readers.size(), 1u);
  EXPECT_TRUE(turnUntil(context.loop, [&] { return writer.readers.empty(); }));
}

TEST_F(Connections, AKickToAVanishedReaderIsLoggedAndRaisesNoSignal) {
  const Child writer =
      start("writer", [this](Channel& parent) { runKickerOfAVanishedReader(parent, table); });
  EXPECT_EQ(writer->finish(), 0);
  EXPECT_THAT(writer->log(), HasSubstr(" send() Broken pipe"));
}

void runReporterToAVanishedWriter(Channel& parent, SharedTable& table) {
  ASSERT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_ERR);
  ProcessContext context;
  TableReader reader(context.handler, context.root, table);
  reader.doConnect();
  pollfd kicked = {reader.fdControl->fd(), POLLIN, 0};
  EXPECT_EQ(::poll(&kicked, 1, -1), 1);  // the writer has read the first report
  parent.send("connected");
  parent.await("the writer has ended");
  reader.sendSequence(0);
  EXPECT_TRUE(turnUntil(context.loop, [&] { return !reader.isConnected(); }));
}

TEST_F(Connections, AReportToAVanishedWriterIsLoggedAndRaisesNoSignal) {
  const Child writer = startWriter();
  const Child reporter =
      start("reporter", [this](Channel& parent) { runReporterToAVanishedWriter(parent, table); });
  reporter->await("connected");
  writer->kill();
  reporter->send("the writer has ended");
  EXPECT_EQ(reporter->finish(), 0);
  EXPECT_THAT(reporter->log(), HasSubstr(" failed: Broken pipe"));
}

/// While one lives, no descriptor is to be had.
class NoDescriptorsLeft {
 public:
  NoDescriptorsLeft() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
    const int lowestFree = ::dup(STDIN_FILENO);
    EXPECT_EQ(::close(lowestFree), 0);
    rlimit none = before_;
    none.rlim_cur = static_cast<rlim_t>(lowestFree);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~NoDescriptorsLeft() { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before_), 0); }

 private:
  rlimit before_ = {};
};

TEST_F(Connections, AReaderIsAcceptedWhenDescriptorsAreFreeAgain) {
  handler.expectFailures();
  Brask::Linux::EventLoop loop;
  const RootPath root(handler, "quotes", true);
  TableWriter writer(handler, root, table);
  writer.open();
  const RawPeer peer = RawPeer::connect(root.path);
  {
    const NoDescriptorsLeft exhausted;
    EXPECT_TRUE(turnUntil(loop, [&] { return !handler.texts(0).empty(); }));
    EXPECT_THAT(handler.texts(0).front(), HasSubstr("accept() sd:"));
    EXPECT_THAT(handler.texts(0).front(), HasSubstr(" Too many open files"));
    EXPECT_TRUE(writer.readers.empty());
  }
  EXPECT_TRUE(turnUntil(loop, [&] { return writer.readers.size() == 1; }));
  peer.report(0);
  EXPECT_TRUE(turnUntil(loop, [&] { return writer.sleepingReaders.size() == 1; }));
  EXPECT_TRUE(peer.awaitKick());
}

}  // namespace
}  // namespace Zorbe::Test
