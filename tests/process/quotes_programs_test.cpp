// SPDX-License-Identifier: MIT
//
// The example programs, driven as a user would.
#include "process/example_programs.h"

#include <fcntl.h>
#include <stdio.h>

#include <csignal>

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class QuotesPrograms : public ExamplePrograms {
 protected:
  ChildProcess startWriter(const std::string& input = "/dev/null") {
    return start({"quotes-writer", "t"}, input);
  }

  /// A reader that minds signals.
  ChildProcess startReader(const std::string& option = "--events") {
    ChildProcess reader = start({"quotes-reader", "t", option});
    reader.awaitLine("following t");
    return reader;
  }

  /// A file of rows for a writer.
  std::string rows(const std::string& text) {
    const std::string path = inRoot("rows.csv");
    std::ofstream(path) << text;
    return path;
  }

  /// Waits until a program that runs has written `words` to its standard error.
  static void awaitErrors(ChildProcess& program, const std::string& words) {
    for (int i = 0; i < 100000; ++i) {
      if (program.log().find(words) != std::string::npos) return;
      ASSERT_FALSE(program.endsWithin(10ms)) << program.log();
    }
    FAIL() << "never written: " << words;
  }

  /// The value of `key` in a line of "key=value" words.
  static std::string field(const std::string& line, const std::string& key) {
    const size_t begin = (" " + line).find(" " + key + "=");
    if (begin == line.npos) throw std::runtime_error("no " + key + " in: " + line);
    const size_t value = begin + key.size() + 1;
    return line.substr(value, line.find(' ', value) - value);
  }

  static std::string stateOf(ChildProcess& process, const std::string& prefix) {
    process.signal(SIGUSR1);
    return process.awaitLine(prefix);
  }

  /// Until the writer has made the table again: without one it says 0.
  static void awaitOtherIncarnation(ChildProcess& writer, const std::string& before) {
    std::string now = "0";
    while (now == "0" || now == before) now = field(stateOf(writer, "writer "), "incarnation");
  }

  /// Asks a reader for its state until it is that of the writer.
  static void awaitEqual(ChildProcess& reader, ChildProcess& writer) {
    const std::string written = stateOf(writer, "writer ");
    for (int i = 0; i < 100000; ++i) {
      const std::string read = stateOf(reader, "reader ");
      if (read != "reader without a table" &&
          field(read, "incarnation") == field(written, "incarnation") &&
          field(read, "sequence") == field(written, "sequence") &&
          field(read, "connected") == "yes" && field(read, "digest") == field(written, "digest")) {
        return;
      }
    }
    FAIL() << "the reader never has what the writer has: " << written;
  }
};

TEST_F(QuotesPrograms, TheDemoSucceeds) {
  ChildProcess demo = start({"quotes-demo", ZORBE_TICKS});
  EXPECT_EQ(demo.finish(240s), 0) << demo.log();
}

TEST_F(QuotesPrograms, TheCommittedRowsAreThoseOfTheGenerator) {
  ChildProcess generator({"/bin/sh", "-c", program("make-ticks") + " > " + inRoot("ticks.csv")});
  ASSERT_EQ(generator.finish(), 0) << generator.log();
  EXPECT_TRUE(contentOf(inRoot("ticks.csv")) == contentOf(ZORBE_TICKS));
}

TEST_F(QuotesPrograms, TheWriterEndsWithExitOnceEverythingIsRead) {
  ChildProcess writer = start({"quotes-writer", "t", "--exit"}, rows("A,1.5,10\nB,2,20\n"));
  EXPECT_EQ(field(writer.awaitLine("fed "), "rows"), "2");
  EXPECT_EQ(writer.finish(), 0) << writer.log();
}

TEST_F(QuotesPrograms, TheWriterNamesBadRowsAndCountsThem) {
  ChildProcess writer = start({"quotes-writer", "t", "--exit"},
                              rows("symbol,price,size\nA,1.5,10\nnonsense\nA,x,1\nB,2,20"));
  const std::string fed = writer.awaitLine("fed ");
  EXPECT_EQ(field(fed, "rows"), "2");
  EXPECT_EQ(field(fed, "skipped"), "2");
  EXPECT_EQ(writer.finish(), 1);
  EXPECT_EQ(writer.log(),
            "quotes-writer: line 3: row 'nonsense' does not have the three fields "
            "symbol,price,size\n"
            "quotes-writer: line 4: price 'x' is not a decimal number\n");
}

TEST_F(QuotesPrograms, TheTableGrowsBeyondItsFirstSlots) {
  ChildProcess writer =
      start({"quotes-writer", "t", "--exit", "--slots", "1"}, rows("A,1,1\nB,1,1\nC,1,1\n"));
  EXPECT_EQ(field(writer.awaitLine("writer "), "symbols"), "3");
  EXPECT_EQ(writer.finish(), 0);
}

TEST_F(QuotesPrograms, ASecondWriterIsRefusedAndNamesTheFirst) {
  ChildProcess first = startWriter();
  first.awaitLine("ready ");
  ChildProcess second = startWriter();
  EXPECT_EQ(second.finish(), 3);
  EXPECT_THAT(second.log(), HasSubstr("duplicate writer detected"));
  EXPECT_THAT(second.log(), HasSubstr("quotes-writer:" + std::to_string(first.pid())));
}

TEST_F(QuotesPrograms, TheReaderPrintsOneQuoteOrSaysThatThereIsNone) {
  ChildProcess writer = startWriter(rows("A,1.5,10\n"));
  writer.awaitLine("fed ");
  ChildProcess found = start({"quotes-reader", "t", "--get", "A"});
  EXPECT_EQ(found.awaitLine("A"), "A,1.5000,10");
  EXPECT_EQ(found.finish(), 0);
  ChildProcess missing = start({"quotes-reader", "t", "--get", "B"});
  EXPECT_EQ(missing.finish(), 1);
  EXPECT_EQ(missing.log(), "quotes-reader: no symbol B\n");
}

TEST_F(QuotesPrograms, TheReaderPrintsItsCopyAtTheEnd) {
  ChildProcess writer = startWriter(rows("B,2,20\nA,1.5,10\n"));
  writer.awaitLine("fed ");
  ChildProcess reader = startReader("--print");
  awaitEqual(reader, writer);
  reader.signal(SIGTERM);
  EXPECT_EQ(reader.awaitLine("A"), "A,1.5000,10");
  EXPECT_EQ(reader.awaitLine("B"), "B,2.0000,20");
  EXPECT_EQ(reader.finish(), 0);
}

TEST_F(QuotesPrograms, WrongUsageSaysWhatIsRight) {
  for (const char* name : {"quotes-writer", "quotes-reader"}) {
    ChildProcess none = start({name});
    EXPECT_EQ(none.finish(), 2);
    EXPECT_THAT(none.log(), HasSubstr("exactly one NAME is needed"));
    ChildProcess help = start({name, "--help"});
    EXPECT_THAT(help.awaitLine("Usage: "), HasSubstr(name));
    EXPECT_EQ(help.finish(), 0);
  }
  ChildProcess slots = start({"quotes-writer", "t", "--slots", "0"});
  EXPECT_EQ(slots.finish(), 2);
  EXPECT_EQ(slots.log(), "quotes-writer: --slots takes a number from 1 to 16777216, not '0'\n");
}

TEST_F(QuotesPrograms, StartedInAnyOrderTheyMeet) {
  ChildProcess early = startReader();
  ChildProcess writer = startWriter(rows("A,1,1\n"));
  ChildProcess late = startReader();
  writer.awaitLine("fed ");
  awaitEqual(early, writer);
  awaitEqual(late, writer);
}

TEST_F(QuotesPrograms, AKilledWriterIsReplacedAndReadersConverge) {
  ChildProcess reader = startReader();
  for (int round = 1; round <= 5; ++round) {
    ChildProcess writer = startWriter(rows("S" + std::to_string(round) + ",1,1\n"));
    writer.awaitLine("fed ");
    awaitEqual(reader, writer);
    writer.signal(SIGKILL);
    EXPECT_EQ(writer.finish(), -SIGKILL);
    reader.awaitLine("event departed");
  }
  ChildProcess last = start({"quotes-writer", "t"});
  EXPECT_EQ(field(last.awaitLine("ready "), "sequence"), "5");
  awaitEqual(reader, last);
}

TEST_F(QuotesPrograms, AWriterThatEndsInOrderIsReported) {
  ChildProcess writer = startWriter();
  ChildProcess reader = startReader();
  reader.awaitLine("event connected");
  writer.signal(SIGTERM);
  EXPECT_EQ(writer.finish(), 0);
  reader.awaitLine("event departed");
}

TEST_F(QuotesPrograms, TheyConvergeAfterTheDirectoryWasRemoved) {
  ChildProcess writer = startWriter(rows("A,1,1\n"));
  ChildProcess reader = startReader();
  writer.awaitLine("fed ");
  for (int round = 0; round < 3; ++round) {
    awaitEqual(reader, writer);
    const std::string before = field(stateOf(writer, "writer "), "incarnation");
    std::filesystem::remove_all(inRoot("t"));
    awaitOtherIncarnation(writer, before);
  }
  awaitEqual(reader, writer);
}

// Their connections fill the writer's queue, and the last of them waits in connect(2).
TEST_F(QuotesPrograms, ReadersOfAStoppedWriterEndWhenAskedTo) {
  ChildProcess writer = startWriter();
  writer.awaitLine("ready ");
  writer.signal(SIGSTOP);
  std::vector<ChildProcess> readers;
  for (int i = 0; i < 8; ++i) readers.push_back(startReader());
  for (ChildProcess& reader : readers) {
    for (int i = 0; !reader.endsWithin(10ms); ++i) {
      ASSERT_LT(i, 1000);
      reader.signal(SIGTERM);
    }
    EXPECT_EQ(reader.finish(), 0);
  }
}

// A file in the directory's place: the library throws out of the loop, since it cannot make the
// directory again.
TEST_F(QuotesPrograms, TheyContinueWhenTheDirectoryCannotBeMadeForATime) {
  ChildProcess writer = startWriter(rows("A,1,1\n"));
  ChildProcess reader = start({"quotes-reader", "t", "--events", "--level", "0"});
  reader.awaitLine("following t");  // from here on it handles signals
  writer.awaitLine("fed ");
  awaitEqual(reader, writer);
  std::ofstream(inRoot("file")) << "in the way";
  ASSERT_EQ(
      ::renameat2(AT_FDCWD, inRoot("file").c_str(), AT_FDCWD, inRoot("t").c_str(), RENAME_EXCHANGE),
      0);
  awaitErrors(writer, "WriterCore::keep() " + inRoot("t"));
  const std::string before = field(stateOf(reader, "reader "), "incarnation");
  std::filesystem::remove(inRoot("t"));
  awaitOtherIncarnation(writer, before);
  awaitEqual(reader, writer);
  EXPECT_EQ(field(stateOf(writer, "writer "), "symbols"), "1");
}

TEST_F(QuotesPrograms, AnIdleReaderUsesUnderOnePercentOfAProcessor) {
  ChildProcess withoutWriter = start({"quotes-reader", "none"});
  ChildProcess writer = startWriter(rows("A,1,1\n"));
  ChildProcess asleep = startReader();
  writer.awaitLine("fed ");
  awaitEqual(asleep, writer);
  const double before[] = {withoutWriter.cpuSeconds(), asleep.cpuSeconds(), writer.cpuSeconds()};
  constexpr int kSeconds = 3;
  EXPECT_FALSE(writer.endsWithin(std::chrono::seconds(kSeconds)));
  // A hundredth of a second is as fine as the kernel counts.
  EXPECT_LE(withoutWriter.cpuSeconds() - before[0], kSeconds / 100.0 + 0.01);
  EXPECT_LE(asleep.cpuSeconds() - before[1], kSeconds / 100.0);
  EXPECT_LE(writer.cpuSeconds() - before[2], kSeconds / 100.0);
}

}  // namespace
}  // namespace Zorbe::Test
