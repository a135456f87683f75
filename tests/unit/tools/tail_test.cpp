// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <poll.h>
#include <zorbe/table/core.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "support/file_content.h"
#include "unit/tools/records_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class ZorbeTail : public Records {
 protected:
  // Begins when the writer serves.
  ChildProcess startFeed(const LiveInput& input) {
    ChildProcess writer = startWith(input.path(), feedOf("t", {"--format", "json"}));
    listedOnce("t", [](const Json& table) {
      return !table["writer"].is_null() && table["writer"]["listening"] == true;
    });
    return writer;
  }

  ChildProcess startTail(const Words& more = {}) {
    Words arguments{"tail", "t", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return start(arguments);
  }

  // Until the process takes its signals for itself.
  static void awaitBlockedSignals(pid_t pid) {
    const std::string status = "/proc/" + std::to_string(pid) + "/status";
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (contentOf(status).find("SigBlk:\t0000000000004002") == std::string::npos) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    }
  }

  // Ends when nobody reads what it prints.
  static int endsOnceUnread(const std::string& arguments, const std::string& reader) {
    const std::string command =
        "set -o pipefail; " + std::string(ZORBE_COMMAND) + " " + arguments + " | " + reader;
    return runProgram({"/bin/bash", "-c", command}).status;
  }
};

TEST_F(ZorbeTail, BeginsWithAllRecordsAndGoesOnWithWhatChanges) {
  LiveInput input(inRoot("pipe"));
  feed("t", "a,1\n");
  ChildProcess writer = startFeed(input);
  ChildProcess reader = startTail();
  EXPECT_EQ(reader.receive(), R"({"reset":true})");
  EXPECT_EQ(reader.receive(), R"({"k":"a","v":1})");
  EXPECT_EQ(reader.receive(), R"({"complete":true})");
  input.write("{\"k\":\"b\",\"v\":2}\n");
  EXPECT_EQ(reader.receive(), R"({"k":"b","v":2})");
  input.write("{\"k\":\"a\",\"erased\":true}\n");
  EXPECT_EQ(reader.receive(), R"({"k":"a","erased":true})");
  reader.signal(SIGINT);
  EXPECT_EQ(reader.finish(), 0);
  EXPECT_EQ(reader.log(), "");
}

TEST_F(ZorbeTail, TextNamesWhatHasHappened) {
  LiveInput input(inRoot("pipe"));
  feed("t", "\"a b\",1\n");
  ChildProcess writer = startFeed(input);
  ChildProcess reader = start({"tail", "t"});
  EXPECT_EQ(reader.receive(), "reset");
  EXPECT_EQ(reader.receive(), "put     k=\"a b\" v=1");
  EXPECT_EQ(reader.receive(), "complete");
  input.write("{\"k\":\"a b\",\"erased\":true}\n");
  EXPECT_EQ(reader.receive(), "erased  k=\"a b\"");
}

TEST_F(ZorbeTail, WithNewItLeavesOutWhatIsThere) {
  LiveInput input(inRoot("pipe"));
  feed("t", "a,1\nb,2\n");
  ChildProcess writer = startFeed(input);
  ChildProcess reader = startTail({"--new"});
  pollfd output{reader.channel().fd(), POLLIN, 0};
  int value = 0;
  do {  // nothing says when the command has begun
    input.write("{\"k\":\"c\",\"v\":" + std::to_string(++value) + "}\n");
    ASSERT_LT(value, 10'000);
  } while (::poll(&output, 1, 10) == 0);
  EXPECT_THAT(reader.receive(), StartsWith(R"({"k":"c","v":)"));
}

TEST_F(ZorbeTail, FollowsTheNextWriter) {
  LiveInput first(inRoot("first"));
  LiveInput second(inRoot("second"));
  ChildProcess writer = startFeed(first);
  ChildProcess reader = startTail();
  reader.await(R"({"complete":true})");
  first.write("{\"k\":\"a\",\"v\":1}\n");
  reader.await(R"({"k":"a","v":1})");
  writer.kill();
  ChildProcess next = startFeed(second);
  second.write("{\"k\":\"b\",\"v\":2}\n");
  EXPECT_EQ(reader.receive(), R"({"k":"b","v":2})");
}

TEST_F(ZorbeTail, WithoutWaitATableThatIsNotThereIsAFailure) {
  const Outcome run = zorbe({"tail", "t"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "zorbe: no table t at " + inRoot("t") + "\n");
  EXPECT_FALSE(fs::exists(inRoot("t")));
}

TEST_F(ZorbeTail, WithWaitItBeginsWhenTheTableIsThere) {
  ChildProcess reader = startTail({"--wait"});
  feed("t", "a,1\n");
  EXPECT_EQ(reader.receive(), R"({"reset":true})");
  EXPECT_EQ(reader.receive(), R"({"k":"a","v":1})");
}

TEST_F(ZorbeTail, WhileItWaitsItCreatesNothingAndEndsOnASignal) {
  ChildProcess reader = startTail({"--wait"});
  awaitBlockedSignals(reader.pid());
  reader.signal(SIGTERM);
  EXPECT_EQ(reader.finish(), 0);
  EXPECT_FALSE(fs::exists(inRoot("t")));
}

TEST_F(ZorbeTail, EndsWhenItsOutputIsClosedThoughNothingChanges) {
  feed("t", "a,1\nb,2\n");
  EXPECT_EQ(endsOnceUnread("tail t --json", "head -n 4"), 0);
  EXPECT_EQ(endsOnceUnread("tail t --new", "true"), 0);
  EXPECT_EQ(endsOnceUnread("tail none --wait", "true"), 0);
}

TEST_F(ZorbeTail, ASignalEndsItWhileItsOutputIsFull) {
  std::string rows;
  for (int i = 0; i < 20'000; ++i) rows += std::to_string(i) + ",1\n";
  feed("t", rows);
  ChildProcess reader = startTail();
  EXPECT_EQ(reader.receive(), R"({"reset":true})");  // and no more of the 500 kB
  reader.signal(SIGTERM);
  EXPECT_EQ(reader.finish(), 0);
}

TEST_F(ZorbeTail, AFullDiskIsAFailure) {
  feed("t", "a,1\n");
  const Outcome run =
      runProgram({"/bin/sh", "-c", std::string("exec ") + ZORBE_COMMAND + " tail t >/dev/full"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("cannot write to standard output"));
}

TEST_F(ZorbeTail, EndsWhenTheTableHasOtherColumns) {
  feed("t", "a,1\n");
  ChildProcess reader = startTail();
  reader.await(R"({"complete":true})");
  EXPECT_EQ(zorbe({"remove", "t"}).status, 0);
  EXPECT_EQ(zorbeWith("a,1\n", {"feed", "t", "--key", "k:S9", "--field", "v:i4"}).status, 0);
  EXPECT_EQ(reader.finish(), 2);
  EXPECT_EQ(reader.log(), "zorbe: table 't' was replaced by one with other columns\n");
}

TEST_F(ZorbeTail, RefusesNamesThatWouldBeAmbiguousInJson) {
  {
    Brask::Linux::EventLoop loop;
    Zorbe::Table::WriterCore writer("t", {}, {1, 1, "key k u1 0\nvalue erased b1 0\n"});
    uint64_t key = 0;
    std::memcpy(&key, "\x01", 1);
    writer.put(&key, "\x01");
  }
  const Outcome run = zorbe({"tail", "t", "--json"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("the field 'erased' cannot be shown as JSON"));
  EXPECT_EQ(zorbe({"dump", "t", "--json"}).out, "{\"k\":1,\"erased\":true}\n");
}

}  // namespace
}  // namespace Zorbe::Test
