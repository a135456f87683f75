// SPDX-License-Identifier: MIT
//
// What `zorbe-relay status` and `zorbe-relay metrics` say of a server's tables.
#include "support/outcome.h"
#include "unit/relay/relay_fixture.h"

#include <unistd.h>

namespace Zorbe::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class RelayStatusTest : public RelayTest {
 protected:
  Outcome ask(const std::string& query, Words more = {}) {
    Words words{ZORBE_RELAY, query, "--from", server().address(), "--root", inRoot("there")};
    words.insert(words.end(), more.begin(), more.end());
    return runProgram(words);
  }

  /// One table with two records, published and mirrored by this process.
  void makeEqualTables() {
    makeAll();
    writer->put(1, {10, 0});
    writer->put(2, {20, 0});
    ASSERT_TRUE(becomeEqual());
    ASSERT_TRUE(turnUntil([&] { return reader->info().origin == Table::Origin::mirrored; }));
  }

  /// As if the publisher had been silent for that long.
  void setBack(uint64_t milliseconds) {
    const std::string beat = server().ask({"HGET", "zorbe:{t}:about", "heartbeat"});
    server().ask(
        {"HSET", "zorbe:{t}:about", "heartbeat", std::to_string(std::stoull(beat) - milliseconds)});
  }

  static std::string hostName() {
    char name[256] = {};
    EXPECT_EQ(::gethostname(name, sizeof name - 1), 0);
    return name;
  }
};

TEST_F(RelayStatusTest, ATableIsShownWithItsPublisherAndTheCopyOfThisHost) {
  makeEqualTables();
  const Outcome outcome = ask("status", {"--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const Json all = outcome.json();
  EXPECT_EQ(all["server"], server().address());
  ASSERT_EQ(all["tables"].size(), 1u);
  const Json table = all["tables"][0];
  EXPECT_EQ(table["name"], "t");
  EXPECT_EQ(table["format"], Relay::kFormat);
  EXPECT_EQ(table["publisher"]["live"], true);
  EXPECT_LT(table["publisher"]["heartbeat_age_seconds"], 5);
  EXPECT_EQ(table["publisher"]["host"], hostName());
  EXPECT_EQ(table["publisher"]["pid"], std::to_string(::getpid()));
  EXPECT_EQ(table["publisher"]["version"], ZORBE_VERSION);
  EXPECT_EQ(table["publisher"]["epoch"], server().ask({"HGET", "zorbe:{t}:about", "epoch"}));
  EXPECT_EQ(table["source"], "live");
  EXPECT_EQ(table["records"], 2);
  EXPECT_EQ(std::to_string(table["stream"]["batches"].get<int>()),
            server().ask({"XLEN", "zorbe:{t}:changes"}));
  EXPECT_EQ(std::to_string(table["stream"]["bytes"].get<int>()),
            server().ask({"MEMORY", "USAGE", "zorbe:{t}:changes"}));
  EXPECT_EQ(table["here"]["origin"], "mirrored");
  EXPECT_EQ(table["here"]["writer"], true);
  EXPECT_TRUE(table["here"]["origin_since"].is_string());
}

TEST_F(RelayStatusTest, PeopleGetATable) {
  makeEqualTables();
  const Words lines = ask("status").lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("TABLE  PUBLISHER  HEARTBEAT  SOURCE  RECORDS", 0), 0u);
  EXPECT_EQ(lines[1].rfind("t      live       ", 0), 0u);
  EXPECT_THAT(lines[1], HasSubstr("  mirrored  "));
}

TEST_F(RelayStatusTest, AMirrorThatHasEndedIsShown) {
  makeEqualTables();
  mirror.reset();
  const Json table = ask("status", {"--json"}).json()["tables"][0];
  EXPECT_EQ(table["here"]["writer"], false);
  EXPECT_THAT(ask("status").out, HasSubstr(", no writer"));
  EXPECT_THAT(ask("metrics").out, HasSubstr("\nzorbe_relay_mirror_up{table=\"t\"} 0\n"));
}

TEST_F(RelayStatusTest, ASilentPublisherIsStatusOne) {
  makeEqualTables();
  publisher.reset();
  setBack(4000);
  EXPECT_EQ(ask("status").status, 0);
  setBack(2000);
  const Outcome outcome = ask("status", {"--json"});
  EXPECT_EQ(outcome.status, 1);
  const Json table = outcome.json()["tables"][0];
  EXPECT_EQ(table["publisher"]["live"], false);
  EXPECT_GE(table["publisher"]["heartbeat_age_seconds"], 6);
  EXPECT_EQ(table["source"], "unknown");
}

TEST_F(RelayStatusTest, ASourceWithoutAWriterIsShown) {
  makeEqualTables();
  writer.reset();
  EXPECT_TRUE(turnUntil([&] {
    return server().ask({"HGET", "zorbe:{t}:about", "source"}) == "lost";
  }));
  const Outcome outcome = ask("status", {"--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.json()["tables"][0]["source"], "lost");
}

TEST_F(RelayStatusTest, OneTableIsChosenByItsNameAndMayHaveAnotherHere) {
  makeEqualTables();
  EXPECT_EQ(server().ask({"COPY", "zorbe:{t}:about", "zorbe:{u}:about"}), "1");
  EXPECT_EQ(ask("status", {"--json"}).json()["tables"].size(), 2u);
  const Json tables = ask("status", {"u", "--as", "t", "--json"}).json()["tables"];
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables[0]["name"], "u");
  EXPECT_EQ(tables[0]["records"], 0);
  EXPECT_EQ(tables[0]["here"]["origin"], "mirrored");
}

TEST_F(RelayStatusTest, OnlyTablesOfThePrefixAreFound) {
  makeEqualTables();
  EXPECT_EQ(server().ask({"COPY", "zorbe:{t}:about", "a[*:{b}c:about"}), "1");
  EXPECT_EQ(server().ask({"COPY", "zorbe:{t}:about", "a[*:{}x}:about"}), "1");
  EXPECT_EQ(server().ask({"COPY", "zorbe:{t}:about", "a[b:{y}:about"}), "1");
  const Json tables = ask("status", {"--json", "--prefix", "a[*:"}).json()["tables"];
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables[0]["name"], "}x");
}

TEST_F(RelayStatusTest, AMissingTableIsStatusOne) {
  const Outcome outcome = ask("status", {"missing"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "zorbe-relay: the server has no table missing\n");
  EXPECT_EQ(ask("status").status, 0);
}

TEST_F(RelayStatusTest, ATableOfAnotherFormatIsStatusOne) {
  makeEqualTables();
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:about", "format", "2"}), "0");
  const Outcome outcome = ask("status");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("\nt      format 2 "));
}

TEST_F(RelayStatusTest, ForeignKeysAreNoTables) {
  EXPECT_EQ(server().ask({"SET", "zorbe:{t}:about", "x"}), "OK");
  const Outcome outcome = ask("status", {"--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.json()["tables"].size(), 0u);
}

TEST_F(RelayStatusTest, TextOfTheServerCannotChangeTheTerminal) {
  makeEqualTables();
  EXPECT_EQ(server().ask({"HSET", "zorbe:{t}:about", "host", "a\033[2J\"b"}), "0");
  EXPECT_THAT(ask("status").out, Not(HasSubstr("\033")));
  EXPECT_THAT(ask("metrics").out, HasSubstr(R"(,host="a\\x1b[2J\"b",)"));
}

TEST_F(RelayStatusTest, AServerThatIsNotThereIsStatusTwo) {
  server().kill();
  const Outcome outcome = ask("status");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("zorbe-relay: " + inRoot("server") + "/socket: "));
  EXPECT_EQ(ask("metrics").status, 2);
}

TEST_F(RelayStatusTest, WhatTheServerRefusesIsStatusTwo) {
  EXPECT_EQ(server().ask({"ACL", "SETUSER", "default", "-scan"}), "OK");
  const Outcome outcome = ask("status");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("the server refuses: NOPERM"));
}

TEST_F(RelayStatusTest, WrongUseIsStatusTwo) {
  EXPECT_EQ(runProgram({ZORBE_RELAY, "status"}).status, 2);
  EXPECT_EQ(runProgram({ZORBE_RELAY, "stat\033us"}).status, 2);
  EXPECT_EQ(ask("status", {"--as", "u"}).status, 2);
  EXPECT_EQ(runProgram({ZORBE_RELAY, "--version"}).out, std::string(ZORBE_VERSION) + "\n");
}

TEST_F(RelayStatusTest, MetricsSayTheSame) {
  makeEqualTables();
  const Outcome outcome = ask("metrics");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const auto says = [&](const std::string& name, const std::string& value) {
    return outcome.out.find("\n" + name + "{table=\"t\"} " + value + "\n") != std::string::npos;
  };
  EXPECT_THAT(outcome.out, HasSubstr("\nzorbe_relay_tables 1\n"));
  EXPECT_TRUE(says("zorbe_relay_publisher_up", "1")) << outcome.out;
  EXPECT_TRUE(says("zorbe_relay_source_up", "1"));
  EXPECT_TRUE(says("zorbe_relay_records", "2"));
  EXPECT_TRUE(says("zorbe_relay_stream_batches", server().ask({"XLEN", "zorbe:{t}:changes"})));
  EXPECT_TRUE(says("zorbe_relay_mirror_up", "1"));
  EXPECT_TRUE(says("zorbe_relay_mirror_connected", "1"));
  EXPECT_THAT(outcome.out, HasSubstr("\nzorbe_relay_publisher_info{table=\"t\",host=\"" +
                                     hostName() + "\",pid=\"" + std::to_string(::getpid()) +
                                     "\",version=\"" ZORBE_VERSION "\"} 1\n"));
}

TEST_F(RelayStatusTest, LookingChangesNothing) {
  makeEqualTables();
  const uint64_t published = reader->info().published;
  const std::string before = server().ask({"XINFO", "STREAM", "zorbe:{t}:changes"});
  publisher.reset();
  mirror.reset();
  const std::string about = server().ask({"HGETALL", "zorbe:{t}:about"});
  EXPECT_EQ(ask("status").status, 0);
  EXPECT_EQ(ask("metrics").status, 0);
  EXPECT_EQ(server().ask({"HGETALL", "zorbe:{t}:about"}), about);
  EXPECT_EQ(server().ask({"XINFO", "STREAM", "zorbe:{t}:changes"}), before);
  EXPECT_EQ(reader->info().published, published);
  EXPECT_EQ(
      runProgram({ZORBE_RELAY, "status", "--from", server().address(), "--root", inRoot("nowhere")})
          .status,
      0);
  EXPECT_FALSE(std::filesystem::exists(inRoot("nowhere")));
}

}  // namespace
}  // namespace Zorbe::Test
