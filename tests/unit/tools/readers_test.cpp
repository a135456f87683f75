// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>

#include "unit/tools/ready_made.h"

namespace Zorbe::Test {
namespace {

using testing::Contains;
using testing::HasSubstr;

class ZorbeReaders : public ReadyMade {
 protected:
  /// A process that follows table "t", and says how far it is.
  static ChildProcess startFollower() {
    return ChildProcess("follower", [](Channel& parent) {
      Reader reader("t");
      parent.send("begun");
      const auto forever = std::chrono::nanoseconds::max();
      while (reader.wait(forever)) {
        while (reader.next()) {
        }
        parent.send("at " + std::to_string(reader.info().position));
      }
    });
  }

  /// A process that connects to table "t" and never reports.
  static ChildProcess startSilent(const std::string& path) {
    return ChildProcess("silent", [path](Channel& parent) {
      const RawPeer peer = RawPeer::connect(path);
      EXPECT_TRUE(peer.isOpen());
      parent.send("connected");
      parent.await("end");
    });
  }

  static Json shown(const std::string& table = "t") {
    const Outcome run = zorbe({"readers", "--json", table});
    EXPECT_EQ(run.status, 0) << run.err;
    return run.json();
  }

  /// Asks again until one of the readers is as wanted; fails the test when that takes too long.
  static Json readerOnce(const std::function<bool(const Json&)>& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    Json all;
    do {
      all = shown();
      for (const Json& reader : all["readers"]) {
        if (wanted(reader)) return reader;
      }
    } while (std::chrono::steady_clock::now() < deadline);
    ADD_FAILURE() << "never as wanted: " << all;
    return all;
  }

  static std::function<bool(const Json&)> isState(const std::string& state) {
    return [state](const Json& reader) { return reader["state"] == state; };
  }
};

TEST_F(ZorbeReaders, AReaderThatHasEverythingIsAsleep) {
  ChildProcess follower = startFollower();
  follower.await("begun");
  Writer writer("t");
  fill(writer, 5);
  const Json reader = readerOnce([](const Json& found) { return found["reported"] == 5; });
  EXPECT_EQ(reader["state"], "asleep");
  EXPECT_EQ(reader["pid"], follower.pid());
  EXPECT_EQ(reader["pids"], Json::array({follower.pid()}));
  EXPECT_EQ(reader["uid"], geteuid());
  EXPECT_EQ(reader["lag_records"], 0);
  EXPECT_EQ(reader["stopped"], false);
  EXPECT_THAT(reader["executable"].get<std::string>(), HasSubstr("tools_tests"));
  EXPECT_EQ(shown()["published"], 5);
  EXPECT_EQ(shown()["readers"].size(), 1u) << "the writer's row and the kernel's are one";
}

TEST_F(ZorbeReaders, AStoppedReaderIsBehindByWhatIsPublished) {
  ChildProcess follower = startFollower();
  follower.await("begun");
  Writer writer("t");
  fill(writer, 2);
  readerOnce([](const Json& found) { return found["reported"] == 2; });
  follower.stop();
  fill(writer, 10);
  const Json reader = readerOnce(isState("behind"));
  EXPECT_EQ(reader["pid"], follower.pid());
  EXPECT_EQ(reader["stopped"], true);
  EXPECT_EQ(reader["reported"], 2);
  EXPECT_EQ(reader["lag_records"], 10);
  EXPECT_GE(reader["since_seconds"], 0.0);
  const std::string metrics = zorbe({"metrics"}).out;
  EXPECT_THAT(metrics, HasSubstr("\nzorbe_readers_behind{table=\"t\"} 1\n"));
  EXPECT_THAT(metrics, HasSubstr("\nzorbe_slowest_reader_lag_records{table=\"t\"} 10\n"));
  EXPECT_EQ(listed("t")["header"]["readers"]["slowest_lag_records"], 10);
}

TEST_F(ZorbeReaders, WhoNeverReportsIsAWatcherAndNotSlow) {
  Writer writer("t");
  fill(writer, 5);
  ChildProcess silent = startSilent(inRoot("t"));
  silent.await("connected");
  const Json reader = readerOnce(isState("watcher"));
  EXPECT_EQ(reader["pid"], silent.pid());
  EXPECT_EQ(reader["reported"], nullptr);
  EXPECT_EQ(reader["lag_records"], nullptr);
  EXPECT_THAT(zorbe({"metrics"}).out, HasSubstr("\nzorbe_readers_behind{table=\"t\"} 0\n"));
  silent.send("end");
}

TEST_F(ZorbeReaders, OfAnotherKindOfTableTheProcessesAreKnown) {
  ChildProcess silent("silent", [this](Channel& parent) {
    parent.await("connect");
    const RawPeer peer = RawPeer::connect(inRoot("t"));
    parent.send("connected");
    parent.await("end");
  });
  const RawPeer writer = RawPeer::listen(inRoot("t"));
  silent.send("connect");
  silent.await("connected");
  EXPECT_EQ(shown()["readers"][0]["state"], "pending");
  const RawPeer accepted = writer.accept();
  const Json reader = shown()["readers"][0];
  EXPECT_EQ(reader["state"], "connected");
  EXPECT_EQ(reader["pid"], silent.pid());
  EXPECT_EQ(reader["uid"], geteuid());
  EXPECT_EQ(reader["reported"], nullptr);
  EXPECT_EQ(shown()["published"], nullptr);
  silent.send("end");
}

TEST_F(ZorbeReaders, EachConnectionOfAProcessIsARow) {
  const RawPeer writer = RawPeer::listen(inRoot("t"));
  const RawPeer first = RawPeer::connect(inRoot("t"));
  const RawPeer second = RawPeer::connect(inRoot("t"));
  const RawPeer accepted = writer.accept();
  const Json found = shown()["readers"];
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0]["pid"], getpid());
  EXPECT_EQ(found[1]["pid"], getpid());
}

TEST_F(ZorbeReaders, TextHasOneLineForEachAndSaysWhatLimitsIt) {
  Writer writer("t");
  fill(writer, 5);
  ChildProcess silent = startSilent(inRoot("t"));
  silent.await("connected");
  readerOnce(isState("watcher"));
  const Outcome run = zorbe({"readers", "t"});
  ASSERT_EQ(run.lines().size(), 2u) << run.out;
  EXPECT_THAT(run.lines()[0], HasSubstr("PID  USER"));
  EXPECT_THAT(run.lines()[1], HasSubstr(std::to_string(silent.pid()) + "  "));
  EXPECT_THAT(run.lines()[1], HasSubstr("watcher  "));
  EXPECT_EQ(run.err, "");
  silent.send("end");
}

TEST_F(ZorbeReaders, AReaderOutsideOfTheWritersContainerIsFound) {
  const Words container{"/usr/bin/unshare", "-r", "--pid", "--fork", "--kill-child"};
  Words probe = container;
  probe.emplace_back("true");
  if (runProgram(probe).status != 0) GTEST_SKIP() << "needs user namespaces";
  Words words = container;
  words.push_back(std::string(ZORBE_EXAMPLE_PROGRAMS) + "/quotes-writer");
  words.emplace_back("t");
  ChildProcess writer(words);
  writer.awaitLine("read ");
  ChildProcess reader = startReader("t");
  const Json row = readerOnce([](const Json& found) { return found["reported"] != nullptr; });
  EXPECT_EQ(row["pid"], reader.pid());
  EXPECT_EQ(row["stopped"], false);
}

TEST_F(ZorbeReaders, WithoutAWriterThereAreNone) {
  { Writer writer("t"); }
  const Outcome run = zorbe({"readers", "t"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.lines().size(), 1u);
  EXPECT_THAT(run.err, HasSubstr("no writer"));
  EXPECT_EQ(shown()["readers"], Json::array());
}

TEST_F(ZorbeReaders, ATableThatIsNotThereIsReported) {
  const Outcome run = zorbe({"readers", "none"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("no table none"));
}

TEST_F(ZorbeReaders, AnOrdinaryUserSeesTheNumbersOfOthersProcesses) {
  if (!isRoot()) GTEST_SKIP() << "the readers have to be another user's: needs root";
  ChildProcess follower = startFollower();
  follower.await("begun");
  Writer writer("t");
  fill(writer, 5);
  readerOnce([](const Json& found) { return found["reported"] == 5; });
  const Outcome run = zorbeAsOrdinaryUser({"readers", "--json", "t"});
  ASSERT_EQ(run.status, 0) << run.err;
  const Json found = run.json()["readers"];
  ASSERT_EQ(found.size(), 1u) << found;
  EXPECT_EQ(found[0]["pid"], follower.pid());
  EXPECT_EQ(found[0]["reported"], 5);
  EXPECT_EQ(found[0]["executable"], nullptr);
  EXPECT_EQ(found[0]["stopped"], nullptr);
}

}  // namespace
}  // namespace Zorbe::Test
