// SPDX-License-Identifier: MIT
//
// The example programs, driven as a user would.
#include "support/fixture.h"

#include <child.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using Quotes::Child;
using Quotes::field;
using testing::HasSubstr;

std::string program(const std::string& name) {
  return std::string(ZORBE_EXAMPLE_PROGRAMS) + "/" + name;
}

std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

class QuotesPrograms : public Zorbe::Test::ZorbeTest {
 protected:
  Child start(std::vector<std::string> words, const std::string& input = "/dev/null") {
    words[0] = program(words[0]);
    return Child(words, input);
  }

  Child startWriter(const std::string& input = "/dev/null") {
    return start({"quotes-writer", "t"}, input);
  }

  /// A reader that minds signals.
  Child startReader(const std::string& option = "--events") {
    Child reader = start({"quotes-reader", "t", option});
    reader.awaitLine("following t");
    return reader;
  }

  /// A file of rows for a writer.
  std::string rows(const std::string& text) {
    const std::string path = inRoot("rows.csv");
    std::ofstream(path) << text;
    return path;
  }

  static std::string stateOf(Child& process, const std::string& prefix) {
    process.signal(SIGUSR1);
    return process.awaitLine(prefix);
  }

  /// Asks a reader for its state until it is that of the writer.
  static void awaitEqual(Child& reader, Child& writer) {
    const std::string written = stateOf(writer, "writer ");
    for (int i = 0; i < 100000; ++i) {
      const std::string read = stateOf(reader, "reader ");
      if (read != "reader without a table" && field(read, "fenix") == field(written, "fenix") &&
          field(read, "sequence") == field(written, "sequence") &&
          field(read, "digest") == field(written, "digest")) {
        return;
      }
    }
    FAIL() << "the reader never has what the writer has: " << written;
  }
};

TEST_F(QuotesPrograms, TheDemoSucceeds) {
  Child demo = start({"quotes-demo", ZORBE_TICKS});
  EXPECT_EQ(demo.awaitEnd(240), 0) << demo.errors();
}

TEST_F(QuotesPrograms, TheCommittedRowsAreThoseOfTheGenerator) {
  Child generator({"/bin/sh", "-c", program("make-ticks") + " > " + inRoot("ticks.csv")});
  ASSERT_EQ(generator.awaitEnd(), 0) << generator.errors();
  EXPECT_TRUE(contentOf(inRoot("ticks.csv")) == contentOf(ZORBE_TICKS));
}

TEST_F(QuotesPrograms, TheWriterEndsWithExitOnceEverythingIsRead) {
  Child writer = start({"quotes-writer", "t", "--exit"}, rows("A,1.5,10\nB,2,20\n"));
  EXPECT_EQ(field(writer.awaitLine("fed "), "rows"), "2");
  EXPECT_EQ(writer.awaitEnd(), 0) << writer.errors();
}

TEST_F(QuotesPrograms, TheWriterNamesBadRowsAndCountsThem) {
  Child writer = start({"quotes-writer", "t", "--exit"},
                       rows("symbol,price,size\nA,1.5,10\nnonsense\nA,x,1\nB,2,20"));
  const std::string fed = writer.awaitLine("fed ");
  EXPECT_EQ(field(fed, "rows"), "2");
  EXPECT_EQ(field(fed, "skipped"), "2");
  EXPECT_EQ(writer.awaitEnd(), 1);
  EXPECT_EQ(writer.errors(),
            "quotes-writer: line 3: row 'nonsense' does not have the three fields "
            "symbol,price,size\n"
            "quotes-writer: line 4: price 'x' is not a decimal number\n");
}

TEST_F(QuotesPrograms, ASymbolTooManyIsABadRow) {
  Child writer = start({"quotes-writer", "t", "--exit", "--slots", "1"}, rows("A,1,1\nB,1,1\n"));
  EXPECT_EQ(writer.awaitEnd(), 1);
  EXPECT_THAT(writer.errors(), HasSubstr("line 2: the table is full"));
}

TEST_F(QuotesPrograms, ASecondWriterIsRefusedAndNamesTheFirst) {
  Child first = startWriter();
  first.awaitLine("ready ");
  Child second = startWriter();
  EXPECT_EQ(second.awaitEnd(), 3);
  EXPECT_THAT(second.errors(), HasSubstr("duplicate writer detected"));
  EXPECT_THAT(second.errors(), HasSubstr("quotes-writer:" + std::to_string(first.pid())));
}

TEST_F(QuotesPrograms, TheReaderPrintsOneQuoteOrSaysThatThereIsNone) {
  Child writer = startWriter(rows("A,1.5,10\n"));
  writer.awaitLine("fed ");
  Child found = start({"quotes-reader", "t", "--get", "A"});
  EXPECT_EQ(found.awaitLine("A"), "A,1.5000,10");
  EXPECT_EQ(found.awaitEnd(), 0);
  Child missing = start({"quotes-reader", "t", "--get", "B"});
  EXPECT_EQ(missing.awaitEnd(), 1);
  EXPECT_EQ(missing.errors(), "quotes-reader: no symbol B\n");
}

TEST_F(QuotesPrograms, TheReaderPrintsItsCopyAtTheEnd) {
  Child writer = startWriter(rows("B,2,20\nA,1.5,10\n"));
  writer.awaitLine("fed ");
  Child reader = startReader("--print");
  awaitEqual(reader, writer);
  reader.signal(SIGTERM);
  EXPECT_EQ(reader.awaitLine("A"), "A,1.5000,10");
  EXPECT_EQ(reader.awaitLine("B"), "B,2.0000,20");
  EXPECT_EQ(reader.awaitEnd(), 0);
}

TEST_F(QuotesPrograms, WrongUsageSaysWhatIsRight) {
  for (const char* name : {"quotes-writer", "quotes-reader"}) {
    Child none = start({name});
    EXPECT_EQ(none.awaitEnd(), 2);
    EXPECT_THAT(none.errors(), HasSubstr("exactly one NAME is needed"));
    Child help = start({name, "--help"});
    EXPECT_THAT(help.awaitLine("Usage: "), HasSubstr(name));
    EXPECT_EQ(help.awaitEnd(), 0);
  }
  Child slots = start({"quotes-writer", "t", "--slots", "0"});
  EXPECT_EQ(slots.awaitEnd(), 2);
  EXPECT_EQ(slots.errors(), "quotes-writer: --slots takes a number from 1 to 16777216, not '0'\n");
}

TEST_F(QuotesPrograms, StartedInAnyOrderTheyMeet) {
  Child early = startReader();
  Child writer = startWriter(rows("A,1,1\n"));
  Child late = startReader();
  writer.awaitLine("fed ");
  awaitEqual(early, writer);
  awaitEqual(late, writer);
}

TEST_F(QuotesPrograms, AKilledWriterIsReplacedAndReadersConverge) {
  Child reader = startReader();
  for (int round = 1; round <= 5; ++round) {
    Child writer = startWriter(rows("S" + std::to_string(round) + ",1,1\n"));
    writer.awaitLine("fed ");
    awaitEqual(reader, writer);
    writer.signal(SIGKILL);
    EXPECT_EQ(writer.awaitEnd(), 128 + SIGKILL);
    reader.awaitLine("event departed");
  }
  Child last = start({"quotes-writer", "t"});
  EXPECT_EQ(field(last.awaitLine("ready "), "sequence"), "5");
  awaitEqual(reader, last);
}

TEST_F(QuotesPrograms, AWriterThatEndsInOrderIsReported) {
  Child writer = startWriter();
  Child reader = startReader();
  reader.awaitLine("event mapped");
  writer.signal(SIGTERM);
  EXPECT_EQ(writer.awaitEnd(), 0);
  reader.awaitLine("event departed");
}

TEST_F(QuotesPrograms, TheyConvergeAfterTheDirectoryWasRemoved) {
  Child writer = startWriter(rows("A,1,1\n"));
  Child reader = startReader();
  writer.awaitLine("fed ");
  for (int round = 0; round < 3; ++round) {
    awaitEqual(reader, writer);
    const std::string before = field(stateOf(writer, "writer "), "fenix");
    std::filesystem::remove_all(inRoot("t"));
    while (field(stateOf(writer, "writer "), "fenix") == before) continue;
  }
  awaitEqual(reader, writer);
}

TEST_F(QuotesPrograms, AnIdleReaderUsesUnderOnePercentOfAProcessor) {
  Child withoutWriter = start({"quotes-reader", "none"});
  Child writer = startWriter(rows("A,1,1\n"));
  Child asleep = startReader();
  writer.awaitLine("fed ");
  awaitEqual(asleep, writer);
  const double before[] = {withoutWriter.cpuSeconds(), asleep.cpuSeconds(), writer.cpuSeconds()};
  constexpr double kSeconds = 3;
  EXPECT_FALSE(writer.endsWithin(kSeconds));
  // A hundredth of a second is as fine as the kernel counts.
  EXPECT_LE(withoutWriter.cpuSeconds() - before[0], kSeconds / 100 + 0.01);
  EXPECT_LE(asleep.cpuSeconds() - before[1], kSeconds / 100);
  EXPECT_LE(writer.cpuSeconds() - before[2], kSeconds / 100);
}

TEST_F(QuotesPrograms, TheSmallestClientsMeet) {
  Child writer = start({"minimal-writer"});
  // A reader that finds no writer ends; the writer may need a moment to become one.
  for (bool met = false; !met;) {
    Child reader = start({"minimal-reader"});
    met = !reader.endsWithin(0.5);
    if (!met) continue;
    EXPECT_EQ(writer.awaitLine("1 readers"), "1 readers");
    EXPECT_EQ(reader.awaitLine("the table is at 2"), "the table is at 2");
    EXPECT_EQ(reader.awaitLine("the table is at 3"), "the table is at 3");
  }
  writer.awaitLine("0 readers");
}

}  // namespace
