// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <zorbe/table/in_loop.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <sstream>

#include "memory/layout.h"
#include "support/file_content.h"
#include "unit/tools/records_fixture.h"

namespace Zorbe::Test {

struct FedQuote {
  int64_t price;
  uint32_t size;
};
ZORBE_FIELDS(FedQuote, price, size);

struct FedVenue {
  char venue[4];
  double fee;
};
ZORBE_FIELDS(FedVenue, venue, fee);

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class ZorbeFeed : public Records {
 protected:
  // The first block of the guide's section on the shell. What it prints are its comments.
  static std::string blockOfGuide() {
    const std::string guide = contentOf(ZORBE_TABLE_GUIDE);
    const std::string fence = "\n```sh\n";
    const size_t begin = guide.find(fence, guide.find("\n## From the shell\n")) + fence.size();
    return guide.substr(begin, guide.find("```\n", begin) - begin);
  }

  static std::string commentsOf(const std::string& block) {
    std::istringstream lines(block);
    std::string comments;
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("# ", 0) == 0) comments += line.substr(2) + "\n";
    }
    return comments;
  }
};

TEST_F(ZorbeFeed, AProgramReadsWhatTheShellHasWritten) {
  const Outcome run = zorbeWith("AAPL,101,5\n", {"feed", "prices", "--key", "symbol:S15", "--field",
                                                 "price:i8", "--field", "size:u4"});
  EXPECT_EQ(run.status, 0) << run.err;
  Brask::Linux::EventLoop loop;
  Zorbe::Table::Options options;
  options.keyName = "symbol";
  const Zorbe::Table::LoopReader<Zorbe::Table::Text<15>, FedQuote> reader("prices", options);
  const auto quote = reader.get("AAPL");
  ASSERT_TRUE(quote);
  EXPECT_EQ(quote->price, 101);
  EXPECT_EQ(quote->size, 5U);
}

TEST_F(ZorbeFeed, ContinuesATableThatAProgramHasMade) {
  {
    Brask::Linux::EventLoop loop;
    Zorbe::Table::LoopWriter<uint16_t, FedVenue> writer("venues");
    writer.put(1, {{'X'}, 0.5});
  }
  const Words options{"feed",    "venues",   "--key",   "key:u2",
                      "--field", "venue:S4", "--field", "fee:f8"};
  EXPECT_EQ(zorbeWith("2,LSE,0.25\n", options).status, 0);
  EXPECT_EQ(zorbe({"dump", "venues", "--csv"}).out, "key,venue,fee\n1,X,0.5\n2,LSE,0.25\n");
}

TEST_F(ZorbeFeed, TheCommandsOfTheGuidePrintWhatItSays) {
  const std::string folder = fs::path(ZORBE_COMMAND).parent_path();
  const std::string block = blockOfGuide();
  const Outcome run =
      runProgram({"/bin/bash", "-c", "cd \"$1\" && PATH=$2:$PATH && exec 2>&1\n" + block, "bash",
                  rootPath(), folder});
  EXPECT_NE(run.out, "");
  EXPECT_EQ(run.out, commentsOf(block));
}

TEST_F(ZorbeFeed, WhatADumpPrintsIsInput) {
  const Words columns{"--key", "k:S8", "--field", "v:f8", "--field", "w:S20"};
  Words from{"feed", "from"};
  from.insert(from.end(), columns.begin(), columns.end());
  const std::string rows = "\"a\n\"\"b\",0.1,\"x,y\"\n" + std::string("c\0d", 3) + ",-inf,\n";
  EXPECT_EQ(zorbeWith(rows, from).status, 0);
  const std::string dumped = zorbe({"dump", "from", "--csv"}).out;
  EXPECT_EQ(dumped, "k,v,w\n" + rows);
  const Words formats[] = {{"--csv"}, {"--json"}};
  for (const Words& format : formats) {
    Words to{"feed", "to-" + format[0].substr(2), "--format", format[0].substr(2)};
    to.insert(to.end(), columns.begin(), columns.end());
    const Outcome run = zorbeWith(zorbe({"dump", "from", format[0]}).out, to);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(zorbe({"dump", to[1], "--csv"}).out, dumped);
  }
}

TEST_F(ZorbeFeed, OnlyAFirstLineWithTheColumnNamesIsSkipped) {
  feed("t", "k,v\na,1\n");
  const Outcome run = zorbeWith("b,2\nk,v\n", feedOf("t"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "zorbe: line 2: v: 'v' is no integer\n");
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1", "b,2"));
}

TEST_F(ZorbeFeed, LinesMayEndInCarriageReturnsAndTheLastOneInNothing) {
  feed("t", "a,1\r\nb,2\r\nc,3");
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1", "b,2", "c,3"));
}

TEST_F(ZorbeFeed, ReportsBadRowsWithTheirLinesAndGoesOn) {
  const Outcome run = zorbeWith("a,1\n\"b\n\",x\nc\n\nd,2\n", feedOf("t"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "zorbe: line 2: v: 'x' is no integer\n"
            "zorbe: line 4: the number of fields is 1 and not 2\n"
            "zorbe: line 5: the number of fields is 1 and not 2\n");
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1", "d,2"));
}

TEST_F(ZorbeFeed, ABadRowReachesNoTerminal) {
  EXPECT_EQ(zorbeWith("a,\033[2J\n", feedOf("t")).err,
            "zorbe: line 1: v: '\\x1b[2J' is no integer\n");
}

TEST_F(ZorbeFeed, ALineOfAnyLengthIsOneBadRow) {
  const std::string line = "a," + std::string(3'000'000, '1') + "\n";
  for (const char* format : {"csv", "json"}) {
    const Outcome run = zorbeWith(line, feedOf("t", {"--format", format}));
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, StartsWith("zorbe: line 1: "));
    EXPECT_THAT(run.err, HasSubstr(" more than 65744 bytes"));
  }
}

TEST_F(ZorbeFeed, PublishesWhatHasArrivedWhileTheInputIsOpen) {
  LiveInput input(inRoot("pipe"));
  ChildProcess writer = startWith(input.path(), feedOf("t"));
  input.write("a,1\nb,");
  awaitRows("t", {"a,1"});
  ChildProcess reader = start({"tail", "t", "--json"});
  reader.await(R"({"complete":true})");
  input.write("2\n");
  reader.await(R"({"k":"b","v":2})");
  input.end();
  EXPECT_EQ(writer.finish(), 0);
  awaitRows("t", {"a,1", "b,2"});
}

TEST_F(ZorbeFeed, EndsWithItsInput) {
  feed("t", "a,1\n");
  EXPECT_TRUE(listed("t")["writer"].is_null());
}

TEST_F(ZorbeFeed, StaysAfterItsInputUntilItIsStopped) {
  for (const int signal : {SIGTERM, SIGINT}) {
    putContent(inRoot("rows"), "a,1\n");
    ChildProcess writer = startWith(inRoot("rows"), feedOf("t", {"--stay"}));
    awaitRows("t", {"a,1"});
    ChildProcess reader = start({"tail", "t", "--json"});
    reader.await(R"({"complete":true})");
    listedOnce("t", [](const Json& table) { return table["connections"] == 1; });
    EXPECT_LT(writer.cpuSeconds(), 5) << "it waits, and does not turn";
    writer.signal(signal);
    EXPECT_EQ(writer.finish(), 0);
    EXPECT_EQ(writer.log(), "");
  }
}

TEST_F(ZorbeFeed, AStoppedFeedReportsThatThereWereBadRows) {
  putContent(inRoot("rows"), "a,1\nb,x\n");
  ChildProcess writer = startWith(inRoot("rows"), feedOf("t", {"--stay"}));
  awaitRows("t", {"a,1"});
  writer.signal(SIGTERM);
  EXPECT_EQ(writer.finish(), 1);
}

TEST_F(ZorbeFeed, ASignalEndsItBeforeItsInputEnds) {
  LiveInput input(inRoot("pipe"));
  ChildProcess writer = startWith(input.path(), feedOf("t"));
  input.write("a,1\n");
  awaitRows("t", {"a,1"});
  writer.signal(SIGTERM);
  EXPECT_EQ(writer.finish(), 0);
}

TEST_F(ZorbeFeed, ATableHasOneWriter) {
  LiveInput input(inRoot("pipe"));
  ChildProcess writer = startWith(input.path(), feedOf("t"));
  input.write("a,1\n");
  awaitRows("t", {"a,1"});
  const Outcome second = zorbeWith("a,2\n", feedOf("t"));
  EXPECT_EQ(second.status, 2);
  EXPECT_EQ(second.err, "zorbe: table 't' has a writer: process " + std::to_string(writer.pid()) +
                            ", " + fs::canonical(ZORBE_COMMAND).string() + "\n");
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1"));
}

TEST_F(ZorbeFeed, ATableWithOtherColumnsStaysAsItIs) {
  feed("t", "a,1\n");
  const Outcome run = zorbeWith("a,2\n", {"feed", "t", "--key", "k:S8", "--field", "v:i8"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err,
            "zorbe: table 't' has other columns: --key k:S8 --field v:i4; use these, or remove the "
            "table\n");
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1"));
}

TEST_F(ZorbeFeed, ContinuesATableThatWasDamagedWhileNobodyWrote) {
  feed("t", "a,1\nb,2\n");
  std::string slots = contentOf(inRoot("t/slots"));
  slots[offsetof(Zorbe::Table::SlotsHeader, capacity) + 4] = '\x7f';
  putContent(inRoot("t/slots"), slots);
  EXPECT_EQ(zorbe({"dump", "t"}).status, 2);
  EXPECT_EQ(zorbeWith("c,3\n", feedOf("t")).status, 0);
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1", "b,2", "c,3"));
}

TEST_F(ZorbeFeed, RefusesColumnsThatCannotBe) {
  for (const char* field : {"erased:u4", "v", "v:x1", "k:u4"}) {
    const Outcome run = zorbe({"feed", "t", "--key", "k:u4", "--field", field});
    EXPECT_EQ(run.status, 2) << field;
    EXPECT_THAT(run.err, StartsWith("zorbe: ")) << field;
  }
  EXPECT_NE(zorbe({"feed", "t", "--field", "v:u4"}).status, 0);
  EXPECT_EQ(zorbe({"feed", "t", "--key", "k:u4", "--field", "v:u4", "--format", "xml"}).status, 2);
  EXPECT_FALSE(fs::exists(inRoot("t")));
}

TEST_F(ZorbeFeed, InputThatCannotBeReadIsAFailure) {
  ChildProcess writer = startWith(rootPath(), feedOf("t"));
  EXPECT_EQ(writer.finish(), 2);
  EXPECT_EQ(writer.log(), "zorbe: cannot read standard input: Is a directory\n");
}

TEST_F(ZorbeFeed, ClosedStandardInputIsAFailure) {
  const std::string command =
      std::string("exec ") + ZORBE_COMMAND + " feed t --key k:S8 --field v:i4 <&-";
  const Outcome run = runProgram({"/bin/sh", "-c", command});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "zorbe: cannot read standard input: Bad file descriptor\n");
}

// The first 1,024 records have room from the start.
TEST_F(ZorbeFeed, RowsForWhichThereIsNoRoomAreReported) {
  std::string rows;
  for (int i = 0; i < 1700; ++i) rows += std::to_string(i) + ",1\n";
  putContent(inRoot("rows"), rows);
  const std::string command = std::string("ulimit -f 150; exec ") + ZORBE_COMMAND +
                              " feed t --key k:S8 --field v:i4 <" + inRoot("rows") + " 2>" +
                              inRoot("log");
  EXPECT_EQ(runProgram({"/bin/bash", "-c", command}).status, 1);
  const std::string log = contentOf(inRoot("log"));
  const size_t stored = rowsOf("t").size();
  EXPECT_GE(stored, 1024U);
  EXPECT_LT(stored, 1700U);
  EXPECT_THAT(log, StartsWith("zorbe: line " + std::to_string(stored + 1) + ": "));
}

}  // namespace
}  // namespace Zorbe::Test
