// SPDX-License-Identifier: MIT
#include <csignal>
#include <filesystem>

#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

class ZorbeWatch : public Command {
 protected:
  /// The next event of that name; those before are skipped.
  static Json await(ChildProcess& watch, const std::string& event) {
    for (;;) {
      Json line = Json::parse(watch.awaitLine("{"));
      if (line["event"] == event) return line;
    }
  }

  ChildProcess startWatch() {
    ChildProcess watch = start({"watch", "t", "--json"});
    await(watch, "watching");
    return watch;
  }

  static void expectCleanEnd(ChildProcess& watch, int signal) {
    watch.signal(signal);
    EXPECT_EQ(watch.finish(), 0);
    EXPECT_EQ(watch.log(), "");
  }
};

TEST_F(ZorbeWatch, ReportsWhenAWriterArrivesAndLeaves) {
  makeTable("t");
  ChildProcess watch = startWatch();
  await(watch, "no-writer");
  for (int round = 0; round < 3; ++round) {
    ChildProcess writer = startWriter("t", 1);
    const Json arrived = await(watch, "writer-connected");
    EXPECT_THAT(arrived["detail"].get<std::string>(),
                HasSubstr("pid " + std::to_string(writer.pid()) + " "));
    writer.signal(SIGKILL);
    EXPECT_EQ(writer.finish(), -SIGKILL);
    await(watch, "writer-disconnected");
  }
  expectCleanEnd(watch, SIGINT);
}

TEST_F(ZorbeWatch, FollowsAWriterThatSpellsTheDirectoryInAnotherWay) {
  makeTable("t");
  const auto startOther = [this] {
    ChildProcess writer({"/usr/bin/env", "SHMEM_ROOT=" + rootPath() + "//",
                         std::string(ZORBE_EXAMPLE_PROGRAMS) + "/quotes-writer", "t"});
    writer.awaitLine("read ");
    return writer;
  };
  ChildProcess first = startOther();
  ChildProcess watch = startWatch();
  await(watch, "writer-connected");
  first.kill();
  await(watch, "writer-disconnected");
  const ChildProcess second = startOther();
  await(watch, "writer-connected");
  expectCleanEnd(watch, SIGTERM);
}

TEST_F(ZorbeWatch, ReportsTheWriterThatIsThereAlready) {
  ChildProcess writer = startWriter("t");
  ChildProcess watch = startWatch();
  await(watch, "writer-connected");
  expectCleanEnd(watch, SIGTERM);
}

TEST_F(ZorbeWatch, NamesTheFilesThatChange) {
  const std::string path = makeTable("t");
  ChildProcess watch = startWatch();
  writeFile(path + "/fenix", "2\n");
  EXPECT_EQ(await(watch, "changed")["detail"], "fenix");
  fs::remove(path + "/fenix");
  EXPECT_EQ(await(watch, "changed")["detail"], "fenix");
  expectCleanEnd(watch, SIGINT);
}

TEST_F(ZorbeWatch, ReportsThatTheDirectoryWasLostAndIsBack) {
  const std::string path = makeTable("t");
  ChildProcess watch = startWatch();
  fs::remove_all(path);
  EXPECT_EQ(await(watch, "directory-removed")["detail"], path);
  EXPECT_EQ(await(watch, "directory-created")["detail"], path);
  EXPECT_TRUE(fs::is_directory(path));
  expectCleanEnd(watch, SIGINT);
}

TEST_F(ZorbeWatch, LinesForPeopleBeginWithTheTime) {
  makeTable("t");
  ChildProcess watch = start({"watch", "t"});
  EXPECT_THAT(watch.awaitLine(""),
              ContainsRegex("^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{3}Z  watching  /"));
  expectCleanEnd(watch, SIGINT);
}

TEST_F(ZorbeWatch, AnOddFileNameStaysOnItsLine) {
  const std::string path = makeTable("t");
  ChildProcess watch = start({"watch", "t", "--files-only"});
  watch.awaitLine("");
  writeFile(path + "/a\n\033[2Jb", "");
  EXPECT_THAT(watch.awaitLine(""), HasSubstr("  changed  a\\n\\x1b[2Jb"));
  expectCleanEnd(watch, SIGINT);
}

TEST_F(ZorbeWatch, WithFilesOnlyTheWriterHasNoConnection) {
  ChildProcess writer = startWriter("t");
  ChildProcess watch = start({"watch", "t", "--json", "--files-only"});
  await(watch, "watching");
  writeFile(inRoot("t") + "/mark", "");  // reported by the loop, after everything that it connects
  await(watch, "changed");
  EXPECT_EQ(listed("t")["connections"], 0);
  EXPECT_EQ(listed("t")["pending"], 0);
  expectCleanEnd(watch, SIGINT);
}

TEST_F(ZorbeWatch, ATableThatIsNotThereIsNotMade) {
  const Outcome run = zorbe({"watch", "none"});
  EXPECT_EQ(run.status, 1);
  EXPECT_FALSE(fs::exists(inRoot("none")));
}

TEST_F(ZorbeWatch, DoesNotWaitForAWriterWhoseQueueIsFull) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  auto connections = fillQueue("t");
  for (const int signal : {SIGINT, SIGTERM}) {
    ChildProcess watch = startWatch();
    await(watch, "writer-queue-full");
    writeFile(inRoot("t/mark"), "");
    EXPECT_EQ(await(watch, "changed")["detail"], "mark");
    expectCleanEnd(watch, signal);
  }
  ChildProcess watch = startWatch();
  await(watch, "writer-queue-full");
  connections.clear();
  writer.signal(SIGCONT);
  await(watch, "writer-connected");
  expectCleanEnd(watch, SIGINT);
}

}  // namespace
}  // namespace Zorbe::Test
