// SPDX-License-Identifier: MIT
//
// The programs that the guide quotes, driven as a user would.
#include <fcntl.h>
#include <stdio.h>

#include <csignal>

#include "process/example_programs.h"

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class GuidePrograms : public ExamplePrograms {
 protected:
  struct Writer {
    ChildProcess process;
    std::string incarnation;  // the line that names it
  };
  static Writer startWriter(const std::string& option = "") {
    ChildProcess process = start({"guide-writer", option});
    const std::string words = "writing ";
    std::string incarnation = process.awaitLine(words).substr(words.size());
    return {std::move(process), std::move(incarnation)};
  }

  /// A reader that has followed the writer of this incarnation.
  static ChildProcess startReader(const std::string& incarnation) {
    ChildProcess reader = start({"guide-reader"});
    follows(reader, incarnation);
    return reader;
  }

  /// The next number above `number` that the reader has read. Without a new incarnation before.
  static int awaitAbove(int number, ChildProcess& reader) {
    for (;;) {
      const std::string line = reader.receive();
      EXPECT_THAT(line, StartsWith("at "));
      if (!testing::Matches(StartsWith("at "))(line)) return number;
      const int read = std::stoi(line.substr(3));
      if (read > number) return read;
    }
  }

  static void follows(ChildProcess& reader, const std::string& incarnation) {
    EXPECT_EQ(reader.awaitLine(incarnation), incarnation);
    awaitAbove(awaitAbove(0, reader), reader);
  }

  /// Waits until a program that runs has written `words` so often to its standard error.
  static void awaitErrors(const ChildProcess& program, const std::string& words, int times = 1) {
    for (int i = 0; i < 6000; ++i) {
      const std::string log = program.log();
      int found = 0;
      for (size_t at = 0; (at = log.find(words, at)) != std::string::npos; ++at) ++found;
      if (found >= times) return;
      ASSERT_FALSE(program.endsWithin(10ms)) << log;
    }
    FAIL() << "never written: " << words;
  }
};

TEST_F(GuidePrograms, StartedInAnyOrderTheyMeet) {
  ChildProcess early = start({"guide-reader"});
  awaitErrors(early, "");
  Writer writer = startWriter();
  const ChildProcess late = startReader(writer.incarnation);
  follows(early, writer.incarnation);
}

TEST_F(GuidePrograms, AWriterContinuesWhereAKilledOneStopped) {
  Writer writer = startWriter();
  ChildProcess reader = startReader(writer.incarnation);
  writer.process.kill();
  Writer next = startWriter();
  EXPECT_EQ(next.incarnation, writer.incarnation);
  int number = 0;
  for (int i = 0; i < 5; ++i) number = awaitAbove(number, reader);
  EXPECT_EQ(next.process.log(), "") << "what the reader had reported was refused";
}

TEST_F(GuidePrograms, AReaderMapsANewIncarnation) {
  Writer writer = startWriter();
  ChildProcess reader = startReader(writer.incarnation);
  writer.process.kill();
  Writer next = startWriter("--new");
  EXPECT_NE(next.incarnation, writer.incarnation);
  follows(reader, next.incarnation);
}

TEST_F(GuidePrograms, AReaderSurvivesTheRemovalOfTheDirectory) {
  Writer writer = startWriter();
  ChildProcess reader = startReader(writer.incarnation);
  std::filesystem::remove_all(inRoot("guide"));
  writer.process.kill();
  Writer next = startWriter();
  follows(reader, next.incarnation);
}

// A file in the directory's place: the library throws out of the loop.
TEST_F(GuidePrograms, AReaderSurvivesADirectoryThatCannotBeMadeForATime) {
  Writer writer = startWriter();
  ChildProcess reader = startReader(writer.incarnation);
  writer.process.kill();
  std::ofstream(inRoot("file")) << "in the way";
  ASSERT_EQ(::renameat2(AT_FDCWD, inRoot("file").c_str(), AT_FDCWD, inRoot("guide").c_str(),
                        RENAME_EXCHANGE),
            0);
  awaitErrors(reader, "mkpath() error " + inRoot("guide"), 2);
  std::filesystem::remove(inRoot("guide"));
  const Writer next = startWriter();
  follows(reader, next.incarnation);
}

TEST_F(GuidePrograms, AReaderOfAnotherFileThanTheWritersDoesNotSpin) {
  Writer writer = startWriter();
  startReader(writer.incarnation);
  std::filesystem::copy_file(inRoot("guide/slots"), inRoot("copy"));
  std::filesystem::rename(inRoot("copy"), inRoot("guide/slots"));
  ChildProcess reader = start({"guide-reader"});
  awaitErrors(reader, "this is not the writer's table", 3);
  int passes = 0;
  for (int incarnations = 0; incarnations < 3;) {
    const bool isPass = testing::Matches(StartsWith("at "))(reader.receive());
    ++(isPass ? passes : incarnations);
  }
  EXPECT_LE(passes, 2 * 3);
}

TEST_F(GuidePrograms, OneOfTwoWritersIsRefused) {
  Writer writer = startWriter();
  ChildProcess refused = start({"guide-writer"});
  EXPECT_EQ(refused.finish(), 1);
  EXPECT_THAT(refused.log(), EndsWith("\nguide-writer: the table has a writer, process " +
                                      std::to_string(writer.process.pid()) + "\n"));
}

TEST_F(GuidePrograms, AReaderEndsOnSigtermWithSuccess) {
  Writer writer = startWriter();
  ChildProcess reader = startReader(writer.incarnation);
  reader.signal(SIGTERM);
  EXPECT_EQ(reader.finish(), 0);
}

TEST_F(GuidePrograms, TheMonitorPrintsWhenAWriterComesAndEnds) {
  ChildProcess monitor = start({"guide-monitor"});
  EXPECT_EQ(monitor.receive(), "no writer");
  Writer writer = startWriter();
  EXPECT_EQ(monitor.receive(), "a writer");
  writer.process.kill();
  EXPECT_EQ(monitor.receive(), "no writer");
  EXPECT_EQ(monitor.log(), "");
}

}  // namespace
}  // namespace Zorbe::Test
