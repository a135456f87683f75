// SPDX-License-Identifier: MIT
//
// Exhausted descriptors, watches and queues, and writers that do not answer: each ends in an
// error or a wait, and works again when there is room.
#include <sched.h>
#include <signal.h>
#include <zorbe/exceptions.h>
#include <zorbe/mounter.h>

#include "stress/sweep/exhaustion_fixture.h"
#include "support/child_process.h"
#include "support/periodic_signal.h"

namespace Zorbe::Test {
namespace {

class ChangeCount : public MounterBase {
 public:
  void rootChanged(const std::string& what) override { reports.push_back(what); }
  std::vector<std::string> reports;
};

/// With a writer in a process that is stopped.
class StoppedWriterTest : public ExhaustionTest {
 protected:
  StoppedWriterTest() : writer("writer", [this](Channel& parent) { runWriter(parent, table); }) {
    writer.await("listening");
    writer.stop();
  }

  ChildProcess writer;
};

/// A writer and a reader on one loop.
class ExhaustedWriterTest : public ExhaustionTest {
 protected:
  ExhaustedWriterTest() { writer.open(); }

  void awaitReaders(size_t count) {
    EXPECT_TRUE(turnUntil(loop, [&] { return writer.readers.size() == count; }));
  }

  Brask::Linux::EventLoop loop;
  TableWriter writer{handler, root, table};
  TableReader reader{handler, root, table};
};

TEST_F(ExhaustedWriterTest, AWriterWithoutDescriptorsWaitsAndContinuesWhenThereAreSome) {
  std::vector<Descriptor> sockets;
  for (int i = 0; i < 3; ++i) sockets.push_back(RawPeer::newSocket());
  NoDescriptors exhausted;
  std::vector<RawPeer> peers;
  for (Descriptor& socket : sockets)
    peers.push_back(RawPeer::connect(root.path, std::move(socket)));
  for (const RawPeer& peer : peers) EXPECT_TRUE(peer.isOpen());
  const auto start = std::chrono::steady_clock::now();
  const double before = processorSeconds();
  std::chrono::duration<double> passed{};
  while (passed.count() < 0.5) {
    loop.turn(0.5);
    passed = std::chrono::steady_clock::now() - start;
  }
  EXPECT_LT(processorSeconds() - before, 0.05 * passed.count());
  const size_t accepted = writer.readers.size();
  exhausted.allow();
  EXPECT_EQ(0u, accepted);
  EXPECT_TRUE(isReported("accept() sd:"));
  awaitReaders(3);
}

TEST_F(ExhaustedWriterTest, AReaderWithoutDescriptorsGetsAnErrorAndConnectsWhenThereAreSome) {
  if (kIsSanitized) GTEST_SKIP() << "sanitizers look at exceptions through descriptors";
  NoDescriptors exhausted;
  EXPECT_THROW(reader.doConnect(), Brask::RuntimeException);
  exhausted.allow();
  EXPECT_TRUE(isReported("socket() failed"));
  reader.doConnect();
  EXPECT_TRUE(reader.isConnected());
}

TEST_F(ExhaustedWriterTest, AReaderBeyondTheQueueConnectsWhenTheWriterTurns) {
  const auto queued = fillQueue();
  EXPECT_EQ(6u, queued.size());
  awaitReaders(queued.size());
  reader.doConnect();
  EXPECT_TRUE(reader.isConnected());
}

TEST_F(ExhaustedWriterTest, AConnectionThatSendsNothingHoldsTheLowestSequenceUntilItIsClosed) {
  reader.doConnect();
  auto silent = fillQueue();
  writer.publish(3);
  const size_t all = silent.size() + 1;
  EXPECT_TRUE(turnUntil(loop, [&] { return reader.at() == 3 && writer.readers.size() == all; }));
  EXPECT_EQ(0u, writer.lowestSequence());
  silent.clear();
  awaitReaders(1);
  EXPECT_TRUE(turnUntil(loop, [&] { return writer.allCaughtUp(); }));
}

TEST_F(ExhaustionTest, AForkedChildKeepsTheLockUntilItEnds) {
  int lock = Util::acquireWriterLock(handler, root);
  const auto keep = [](Channel& parent) { parent.await("end"); };
  ChildProcess child("holder", keep, User::kSame, {lock});
  EXPECT_EQ(0, Util::releaseWriterLock(handler, lock));
  EXPECT_THROW(Util::acquireWriterLock(handler, root), DuplicateWriterException);
  child.send("end");
  EXPECT_EQ(0, child.finish());
  lock = Util::acquireWriterLock(handler, root);
  EXPECT_EQ(0, Util::releaseWriterLock(handler, lock));
}

TEST_F(ExhaustionTest, ADirectoryThatCannotBeWatchedIsReportedAndWatchedByANewWatcher) {
  const std::string result = resultInChild([this]() -> std::string {
    const std::string limit = "/proc/sys/user/max_inotify_watches";
    if (::unshare(CLONE_NEWUSER) != 0 || !writeSetting(limit, "0")) return "skip";
    Brask::Linux::EventLoop loop;
    ChangeCount client;
    {
      const MounterSm refused(handler, "quotes", &client);
      loop.turn(0);
    }
    if (client.reports.empty() || !writeSetting(limit, "9")) return "reported nothing";
    const MounterSm watcher(handler, "quotes", &client);
    Util::touch(handler, root.fullPath("slots"));
    root.removeFile("slots");
    loop.turn(0);
    return client.reports.front() + "; " + client.reports.back();
  });
  if (result == "skip") GTEST_SKIP() << "no user namespace with limits of its own";
  EXPECT_EQ("inotify_add_watch() " + rootPath() +
                ": No space left on device (raise fs.inotify.max_user_watches); slots",
            result);
}

TEST_F(StoppedWriterTest, TheWaitForAFullQueueEndsWithASignal) {
  auto queued = fillQueue();
  Brask::Linux::EventLoop loop;
  TableReader reader(handler, root, table);
  {
    const PeriodicSignal signals;
    reader.doConnect();
  }
  EXPECT_FALSE(reader.isConnected());
  EXPECT_TRUE(isReported("failed: Interrupted system call"));
  queued.clear();
  writer.signal(SIGCONT);
  reader.doConnect();
  EXPECT_TRUE(reader.isConnected());
  writer.send("publish 1");
  EXPECT_TRUE(turnUntil(loop, [&] { return reader.at() == 1; }));
}

TEST_F(StoppedWriterTest, AnInterruptedConnectIsADepartureAfterWhichAnotherOneSucceeds) {
  auto queued = fillQueue();
  Brask::Linux::EventLoop loop;
  Departures departures(handler, root);
  {
    const PeriodicSignal signals;
    departures.watch();
  }
  bool arrived = false;
  departures.departed = [&] {
    queued.clear();
    writer.signal(SIGCONT);
    departures.arrived = [&] { arrived = true; };
  };
  EXPECT_TRUE(turnUntil(loop, [&] { return arrived; }));
  EXPECT_EQ(1u, departures.departures);
}

}  // namespace
}  // namespace Zorbe::Test
