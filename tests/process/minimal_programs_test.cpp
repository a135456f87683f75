// SPDX-License-Identifier: MIT
//
// The smallest client programs, driven as a user would.
#include <algorithm>

#include "process/example_programs.h"

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;

class MinimalPrograms : public ExamplePrograms {
 protected:
  /// A reader that is connected to the writer. One that finds none ends; the writer may need a
  /// moment to become one.
  static ChildProcess meet(ChildProcess& writer) {
    for (;;) {
      ChildProcess reader = start({"minimal-reader"});
      if (reader.endsWithin(500ms)) continue;
      EXPECT_EQ(writer.awaitLine("1 readers"), "1 readers");
      return reader;
    }
  }

  /// The number that a reader finds in the table when something was published.
  static int awaitPublished(ChildProcess& reader) {
    const std::string words = "the table is at ";
    for (;;) {
      const int number = std::stoi(reader.awaitLine(words).substr(words.size()));
      if (number > 0) return number;
    }
  }

  /// Awaits the end of a reader; returns its number of passes.
  long passesOfFailingReader(std::string& errors) {
    const std::string output = inRoot("passes");
    ChildProcess reader({"/bin/sh", "-c", "exec " + program("minimal-reader") + " > " + output});
    EXPECT_EQ(reader.finish(), 1);
    errors = reader.log();
    const std::string passes = contentOf(output);
    return std::count(passes.begin(), passes.end(), '\n');
  }
};

TEST_F(MinimalPrograms, MeetAndFollow) {
  ChildProcess writer = start({"minimal-writer"});
  {
    ChildProcess reader = meet(writer);
    const int number = awaitPublished(reader);
    EXPECT_EQ(awaitPublished(reader), number + 1);
    EXPECT_EQ(awaitPublished(reader), number + 2);
  }
  writer.awaitLine("0 readers");
}

TEST_F(MinimalPrograms, OneOfTwoWritersEndsAndNamesTheOther) {
  ChildProcess one = start({"minimal-writer"});
  ChildProcess two = start({"minimal-writer"});
  for (int i = 0; !one.endsWithin(10ms) && !two.endsWithin(10ms); ++i) ASSERT_LT(i, 1000);
  ChildProcess& refused = one.endsWithin(0ms) ? one : two;
  const pid_t holder = (&refused == &one ? two : one).pid();
  EXPECT_EQ(refused.finish(), 1);
  EXPECT_THAT(refused.log(), EndsWith("\nminimal-writer: the table has a writer, process " +
                                      std::to_string(holder) + "\n"));
}

TEST_F(MinimalPrograms, AReaderFindsNoTableInADirectoryThatWasRemoved) {
  ChildProcess writer = start({"minimal-writer"});
  ChildProcess reader = meet(writer);
  awaitPublished(reader);
  std::filesystem::remove_all(inRoot("minimal"));
  std::string errors;
  EXPECT_EQ(passesOfFailingReader(errors), 0);
  EXPECT_EQ(errors, "minimal-reader: no table: cannot open " + inRoot("minimal/slots") + "\n");
  EXPECT_FALSE(reader.endsWithin(0ms)) << "it has the writer's table mapped";
}

TEST_F(MinimalPrograms, AReaderOfAnotherTableThanTheWritersDoesNotSpin) {
  ChildProcess writer = start({"minimal-writer"});
  ChildProcess reader = meet(writer);
  awaitPublished(reader);
  std::filesystem::remove(inRoot("minimal/slots"));
  std::ofstream(inRoot("minimal/slots")) << std::string(sizeof(uint64_t), '\0');
  std::string errors;
  EXPECT_LE(passesOfFailingReader(errors), 2);
  EXPECT_EQ(errors, "minimal-reader: this is not the writer's table any more\n");
}

}  // namespace
}  // namespace Zorbe::Test
