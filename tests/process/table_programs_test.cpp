// SPDX-License-Identifier: MIT
//
// The programs of README.md and docs/table.md, driven as a user would.
#include <sys/stat.h>
#include <zorbe/table.h>

#include "process/example_programs.h"

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class TablePrograms : public ExamplePrograms {
 protected:
  /// A program whose standard input the test writes; a pipe has the name `input`.
  class Fed {
   public:
    Fed(std::vector<std::string> words, const std::string& input)
        : pipe_(makePipe(input)), program_(start(std::move(words), input)) {}

    void write(const std::string& lines) { pipe_ << lines << std::flush; }
    ChildProcess& program() { return program_; }

   private:
    // Open for reading, too, so that neither end waits for the other.
    static std::fstream makePipe(const std::string& path) {
      EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
      return std::fstream(path, std::ios::in | std::ios::out);
    }

    std::fstream pipe_;
    ChildProcess program_;
  };

  std::string fileOf(const std::string& content) {
    const std::string path = inRoot("input" + std::to_string(++files_));
    std::ofstream(path) << content;
    return path;
  }

  /// Runs a writer that puts these lines and ends.
  void write(const std::string& lines) {
    EXPECT_EQ(start({"table-writer"}, fileOf(lines)).finish(), 0);
  }

  /// What a program without input writes to its standard output.
  std::string outputOf(const std::string& command) {
    const std::string output = inRoot("output");
    ChildProcess program(
        {"/bin/sh", "-c",
         "exec " + std::string(ZORBE_EXAMPLE_PROGRAMS) + "/" + command + " > " + output});
    EXPECT_EQ(program.finish(), 0) << program.log();
    return contentOf(output);
  }

 private:
  int files_ = 0;
};

TEST_F(TablePrograms, AReaderWaitsForATableAndFollowsOneWriterAfterAnother) {
  ChildProcess reader = start({"table-reader"});
  EXPECT_FALSE(reader.endsWithin(100ms));
  EXPECT_FALSE(std::filesystem::exists(inRoot("prices"))) << "a reader creates nothing";
  write("ABC 99.5 100.5\n");
  EXPECT_EQ(reader.awaitLine("ABC"), "ABC 99.5 100.5");
  write("DEF 1 2\n");
  EXPECT_EQ(reader.awaitLine("DEF"), "DEF 1 2");
  std::filesystem::remove_all(inRoot("prices"));
  write("GHI 3 4\n");
  EXPECT_EQ(reader.awaitLine("GHI"), "GHI 3 4");
}

TEST_F(TablePrograms, ProgramsInCAndInCppShareATable) {
  ChildProcess reader = start({"table-c-reader"});
  ChildProcess inCpp = start({"table-reader"});
  EXPECT_EQ(start({"table-c-writer"}, fileOf("ABC 99.5 100.5\n")).finish(), 0);
  EXPECT_EQ(reader.awaitLine("ABC"), "ABC 99.5 100.5");
  EXPECT_EQ(inCpp.awaitLine("ABC"), "ABC 99.5 100.5");
  write("DEF 1 2\n");
  EXPECT_EQ(reader.awaitLine("DEF"), "DEF 1 2");
  Fed loop({"table-c-loop"}, inRoot("pipe"));
  loop.write("DEF\n");
  EXPECT_THAT(loop.program().awaitLine("DEF"), HasSubstr("DEF 1 2, "));
  loop.write("none\n");
  EXPECT_THAT(loop.program().awaitLine("none"), HasSubstr("none has no record, "));
}

TEST_F(TablePrograms, ASecondWriterIsRefusedAndNamesTheFirst) {
  Fed first({"table-writer"}, inRoot("pipe"));
  ChildProcess reader = start({"table-reader"});
  first.write("ABC 1 2\n");
  reader.awaitLine("ABC");
  const std::string process = "process " + std::to_string(first.program().pid());
  ChildProcess service = start({"table-service"});
  EXPECT_EQ(service.finish(), 2);
  EXPECT_THAT(service.log(), HasSubstr("table-service: " + process + " writes the table"));
  ChildProcess inC = start({"table-c-writer"});
  EXPECT_EQ(inC.finish(), 1);
  EXPECT_THAT(inC.log(), HasSubstr("table-c-writer: "));
  EXPECT_THAT(inC.log(), HasSubstr(std::to_string(first.program().pid())));
}

TEST_F(TablePrograms, AWriterThatWasKilledLosesNothing) {
  {
    Fed writer({"table-writer"}, inRoot("pipe"));
    ChildProcess reader = start({"table-reader"});
    writer.write("ABC 1 2\nDEF 3 4\n");
    reader.awaitLine("DEF");
    writer.program().kill();
  }
  EXPECT_EQ(outputOf("table-lookup ABC DEF"),
            "ABC 1 2\nDEF 3 4\nhighest bid 1\nsum 4 4\npublished 2, writer absent\n");
  ChildProcess next = start({"table-service"});
  EXPECT_EQ(next.awaitLine("writing"), "writing, 2 records");
  EXPECT_EQ(next.finish(), 0);
}

TEST_F(TablePrograms, LookUpWithoutATable) {
  EXPECT_EQ(outputOf("table-lookup ABC ninebytes"),
            "ABC has no record\nninebytes has no record\nhighest bid 0\nsum 0 0\n"
            "published 0, writer absent\n");
}

TEST_F(TablePrograms, AServiceLeavesOutWhatThereIsNoRoomFor) {
  ChildProcess service =
      start({"table-service"}, fileOf("ABC 1 2\nDEF 3 4\nGHI 5 6\nninebytes 7 8\nABC 9 10\n"));
  EXPECT_EQ(service.finish(), 0);
  EXPECT_EQ(service.log(),
            "left out: table 'prices', key 'GHI': it holds 2 records, which is "
            "Options::maxRecords; erase records or raise the limit\n"
            "left out: table 'prices', key 'ninebytes': the key has 9 bytes and its type room for "
            "8\n");
  EXPECT_EQ(outputOf("table-lookup ABC DEF GHI"),
            "ABC 9 10\nDEF 3 4\nGHI has no record\nhighest bid 9\nsum 12 12\n"
            "published 3, writer absent\n");
  struct stat status {};
  ASSERT_EQ(::stat(inRoot("prices/slots").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(TablePrograms, AStandbyContinuesWhenTheFirstWriterEnds) {
  Fed first({"table-service"}, inRoot("pipe"));
  EXPECT_EQ(first.program().awaitLine("writing"), "writing, 0 records");
  ChildProcess standby = start({"table-service", "60"});
  first.write("ABC 1 2\n");
  ChildProcess reader = start({"table-reader"});
  reader.awaitLine("ABC");
  EXPECT_FALSE(standby.endsWithin(0ms));
  first.program().kill();
  EXPECT_EQ(standby.awaitLine("writing"), "writing, 1 records");
}

TEST_F(TablePrograms, APolledCopyEqualsTheTable) {
  Fed copy({"table-polled"}, inRoot("copy"));
  Fed writer({"table-writer"}, inRoot("pipe"));
  const auto copyIs = [&](const std::string& expected) {
    const auto end = std::chrono::steady_clock::now() + kTimeout;
    while (std::chrono::steady_clock::now() < end) {
      copy.write("\n");
      if (copy.program().receive() == expected) return true;
    }
    return false;
  };
  EXPECT_TRUE(copyIs("0 records"));
  writer.write("ABC 1 2\nDEF 3 4\nABC 5 6\n");
  EXPECT_TRUE(copyIs("2 records, ABC 5, DEF 3"));
  writer.program().kill();
  std::filesystem::remove_all(inRoot("prices"));
  write("GHI 7 8\n");
  EXPECT_TRUE(copyIs("1 records, GHI 7"));
}

TEST_F(TablePrograms, ATableIsMadeOfAnotherInOneLoop) {
  ChildProcess loop = start({"table-in-loop"});
  Fed prices({"table-writer"}, inRoot("pipe"));
  prices.write("ABC 99.5 100.5\n");
  Zorbe::Table::Reader<Zorbe::Table::Text<8>, double> spreads("spreads");
  const auto end = std::chrono::steady_clock::now() + kTimeout;
  while (!spreads.get("ABC") && std::chrono::steady_clock::now() < end) spreads.wait(50ms);
  EXPECT_EQ(spreads.get("ABC"), 1.0);
}

}  // namespace
}  // namespace Zorbe::Test
