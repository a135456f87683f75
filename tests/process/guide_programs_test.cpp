// SPDX-License-Identifier: MIT
//
// The programs that the guide quotes, driven as a user would.
#include <fcntl.h>
#include <stdio.h>

#include <csignal>

#include "process/example_programs.h"

namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using Zorbe::Test::ChildProcess;

class GuidePrograms : public Zorbe::Test::ExamplePrograms {
 protected:
  /// A writer, and the line that names its incarnation.
  static ChildProcess startWriter(std::string& incarnation, const std::string& option = "") {
    ChildProcess writer = start({"guide-writer", option});
    const std::string words = "writing ";
    incarnation = writer.awaitLine(words).substr(words.size());
    return writer;
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
  std::string incarnation;
  ChildProcess writer = startWriter(incarnation);
  ChildProcess late = start({"guide-reader"});
  follows(early, incarnation);
  follows(late, incarnation);
}

TEST_F(GuidePrograms, AWriterContinuesWhereAKilledOneStopped) {
  std::string incarnation;
  std::string continued;
  ChildProcess writer = startWriter(incarnation);
  ChildProcess reader = start({"guide-reader"});
  follows(reader, incarnation);
  writer.kill();
  ChildProcess next = startWriter(continued);
  EXPECT_EQ(continued, incarnation);
  int number = 0;
  for (int i = 0; i < 5; ++i) number = awaitAbove(number, reader);
  EXPECT_EQ(next.log(), "") << "what the reader had reported was refused";
}

TEST_F(GuidePrograms, AReaderMapsANewIncarnation) {
  std::string former;
  std::string latter;
  ChildProcess writer = startWriter(former);
  ChildProcess reader = start({"guide-reader"});
  follows(reader, former);
  writer.kill();
  ChildProcess next = startWriter(latter, "--new");
  EXPECT_NE(latter, former);
  follows(reader, latter);
}

TEST_F(GuidePrograms, AReaderSurvivesTheRemovalOfTheDirectory) {
  std::string former;
  std::string latter;
  ChildProcess writer = startWriter(former);
  ChildProcess reader = start({"guide-reader"});
  follows(reader, former);
  std::filesystem::remove_all(inRoot("guide"));
  writer.kill();
  ChildProcess next = startWriter(latter);
  follows(reader, latter);
}

// A file in the directory's place: the library throws out of the loop.
TEST_F(GuidePrograms, AReaderSurvivesADirectoryThatCannotBeMadeForATime) {
  std::string incarnation;
  ChildProcess writer = startWriter(incarnation);
  ChildProcess reader = start({"guide-reader"});
  follows(reader, incarnation);
  writer.kill();
  std::ofstream(inRoot("file")) << "in the way";
  ASSERT_EQ(::renameat2(AT_FDCWD, inRoot("file").c_str(), AT_FDCWD, inRoot("guide").c_str(),
                        RENAME_EXCHANGE),
            0);
  awaitErrors(reader, "mkpath() error " + inRoot("guide"), 2);
  std::filesystem::remove(inRoot("guide"));
  ChildProcess next = startWriter(incarnation);
  follows(reader, incarnation);
}

TEST_F(GuidePrograms, AReaderOfAnotherFileThanTheWritersDoesNotSpin) {
  std::string incarnation;
  ChildProcess writer = startWriter(incarnation);
  {
    ChildProcess reader = start({"guide-reader"});
    follows(reader, incarnation);
  }
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
  std::string incarnation;
  ChildProcess writer = startWriter(incarnation);
  ChildProcess refused = start({"guide-writer"});
  EXPECT_EQ(refused.finish(), 1);
  EXPECT_THAT(refused.log(), EndsWith("\nguide-writer: the table has a writer, process " +
                                      std::to_string(writer.pid()) + "\n"));
}

TEST_F(GuidePrograms, AReaderEndsOnSigtermWithSuccess) {
  std::string incarnation;
  ChildProcess writer = startWriter(incarnation);
  ChildProcess reader = start({"guide-reader"});
  follows(reader, incarnation);
  reader.signal(SIGTERM);
  EXPECT_EQ(reader.finish(), 0);
}

TEST_F(GuidePrograms, TheMonitorPrintsWhenAWriterComesAndEnds) {
  ChildProcess monitor = start({"guide-monitor"});
  EXPECT_EQ(monitor.receive(), "no writer");
  std::string incarnation;
  ChildProcess writer = startWriter(incarnation);
  EXPECT_EQ(monitor.receive(), "a writer");
  writer.kill();
  EXPECT_EQ(monitor.receive(), "no writer");
  EXPECT_EQ(monitor.log(), "");
}

}  // namespace
