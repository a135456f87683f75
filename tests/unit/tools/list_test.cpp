// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

class ZorbeList : public Command {
 protected:
  static Words names(const Outcome& run) {
    Words names;
    const Json output = run.json();
    for (const Json& table : output["tables"]) names.push_back(table["name"]);
    return names;
  }

  /// The command on a terminal, in an environment.
  static Outcome onTerminal(const std::string& environment) {
    return runProgram({"/usr/bin/env", "TERM=xterm", environment, "script", "-qec",
                       std::string(ZORBE_COMMAND) + " list", "/dev/null"});
  }
};

TEST_F(ZorbeList, NoBaseDirectoryMeansNoTables) {
  const Outcome run = zorbe({"list", "--json", "--root", inRoot("none")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.json()["tables"], Json::array());
}

TEST_F(ZorbeList, ABaseThatIsNoDirectoryIsAFailure) {
  writeFile(inRoot("file"), "");
  const Outcome run = zorbe({"list", "--root", inRoot("file")});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, HasSubstr(inRoot("file")));
}

TEST_F(ZorbeList, TheRootOptionGoesBeforeTheEnvironment) {
  makeTable("outer");
  makeTable("outer/inner");
  EXPECT_EQ(names(zorbe({"list", "--json", "--root", inRoot("outer")})), (Words{"", "inner"}));
}

TEST_F(ZorbeList, ReportsTheFactsOfATableThatIsWritten) {
  ChildProcess writer = startWriter("quotes");
  const Json table = listed("quotes");
  EXPECT_EQ(table["path"], inRoot("quotes"));
  EXPECT_EQ(table["writer"]["state"], "alive");
  EXPECT_EQ(table["writer"]["listening"], true);
  EXPECT_EQ(table["writer"]["pids"], Json::array({writer.pid()}));
  EXPECT_EQ(table["writer"]["executable"], std::string(ZORBE_EXAMPLE_PROGRAMS) + "/quotes-writer");
  EXPECT_EQ(table["connections"], 0);
  EXPECT_EQ(table["fenix"], nullptr) << "which programs of an own table store";
  EXPECT_EQ(table["corrupt"], false);
  EXPECT_THAT(table["last_owner"].get<std::string>(),
              HasSubstr("quotes-writer:" + std::to_string(writer.pid()) + " cmdline: '"));
}

TEST_F(ZorbeList, CountsTheStorageOfTheTablesOwnFilesOnly) {
  const std::string path = makeTable("t");
  writeFile(path + "/slots", std::string(100000, 'x'));
  writeFile(path + "/foreign", std::string(100000, 'x'));
  fs::resize_file(path + "/slots", 1 << 30);  // sparse
  struct stat slots {};
  struct stat fenix {};
  ASSERT_EQ(stat((path + "/slots").c_str(), &slots), 0);
  ASSERT_EQ(stat((path + "/fenix").c_str(), &fenix), 0);
  EXPECT_EQ(listed("t")["storage_bytes"], (slots.st_blocks + fenix.st_blocks) * 512);
}

TEST_F(ZorbeList, AReaderIsAConnectionUntilItEnds) {
  ChildProcess writer = startWriter("quotes");
  ChildProcess reader = startReader("quotes");
  listedOnce("quotes", [](const Json& table) { return table["connections"] == 1; });
  reader.signal(SIGKILL);
  EXPECT_EQ(reader.finish(), -SIGKILL);
  listedOnce("quotes", [](const Json& table) { return table["connections"] == 0; });
}

TEST_F(ZorbeList, ReportsAStoppedWriterAndThoseThatWaitForIt) {
  ChildProcess writer = startWriter("quotes");
  writer.stop();
  const auto connections = fillQueue("quotes");
  const Json table = listed("quotes");
  EXPECT_EQ(table["writer"]["state"], "stopped");
  EXPECT_EQ(table["connections"], 0);
  EXPECT_EQ(table["pending"], connections.size());
}

TEST_F(ZorbeList, OfAKilledWriterOnlyItsNoteIsLeft) {
  ChildProcess writer = startWriter("quotes");
  const std::string note = "quotes-writer:" + std::to_string(writer.pid());
  writer.signal(SIGKILL);
  EXPECT_EQ(writer.finish(), -SIGKILL);
  const Json table = listed("quotes");
  EXPECT_EQ(table["writer"], nullptr);
  EXPECT_THAT(table["last_owner"].get<std::string>(), HasSubstr(note));
}

TEST_F(ZorbeList, AWriterThatIsNotListeningYetHoldsTheLockAllTheSame) {
  const Descriptor held = lock("t");
  const Json table = listed("t");
  EXPECT_EQ(table["writer"]["pids"], Json::array({getpid()}));
  EXPECT_EQ(table["writer"]["listening"], false);
}

TEST_F(ZorbeList, ATableWhoseDirectoryIsRemovedIsListedWhileItsWriterIsAlive) {
  const Descriptor held = lock("t");
  fs::remove_all(inRoot("t"));
  EXPECT_EQ(listed("t")["directory"], false);
  EXPECT_EQ(listed("t")["writer"]["pids"], Json::array({getpid()}));
}

TEST_F(ZorbeList, FindsTablesInsideTables) {
  makeTable("a/b/c");
  makeTable("a");
  fs::create_directory(inRoot("empty"));
  EXPECT_EQ(names(zorbe({"list", "--json"})), (Words{"a", "a/b/c"}));
}

TEST_F(ZorbeList, SearchesEightLevelsAndNoneDeeper) {
  makeTable("1/2/3/4/5/6/7/8");
  makeTable("1/2/3/4/5/6/7/8/9");
  EXPECT_EQ(names(zorbe({"list", "--json"})), Words{"1/2/3/4/5/6/7/8"});
}

TEST_F(ZorbeList, SymbolicLinksAreLookedAtButNotGoneThrough) {
  makeTable("t/inner");
  makeTable("t");
  fs::create_directory_symlink("t", inRoot("link"));
  fs::create_directory_symlink("..", inRoot("t/loop"));
  fs::create_symlink("nowhere", inRoot("dangling"));
  EXPECT_EQ(names(zorbe({"list", "--json"})), (Words{"link", "t", "t/inner"}));
}

TEST_F(ZorbeList, DamagedFilesNeitherBlockNorEndIt) {
  const std::string path = makeTable("t");
  fs::remove(path + "/fenix");
  ASSERT_EQ(mkfifo((path + "/fenix").c_str(), 0666), 0);
  fs::create_directory(path + "/last-owner");
  writeFile(path + "/corruption-detected", "");
  fs::resize_file(path + "/corruption-detected", uintmax_t{1} << 40);
  const Json table = listed("t");
  EXPECT_EQ(table["fenix"], nullptr);
  EXPECT_EQ(table["last_owner"], nullptr);
  EXPECT_EQ(table["corrupt"], true);
  EXPECT_EQ(table["corruption"], nullptr);
}

TEST_F(ZorbeList, ANameTooLongForASocketIsListedWithoutOne) {
  const std::string name(92, 'n');
  writeFile(Zorbe::RootPath(handler, name, true).fullPath("slots"), "");
  const Json table = listed(name);
  EXPECT_EQ(table["socket"], nullptr);
  EXPECT_EQ(table["writer"], nullptr);
}

TEST_F(ZorbeList, OddNamesStayOnTheirLinesAndComeBackWholeInJson) {
  const Words odd{"a\nb", "quote\"d", "red\033[31m", "tab\t", "with blank", "\xc3\xa9"};
  for (const std::string& name : odd) makeTable(name);
  Words found = names(zorbe({"list", "--json"}));
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, odd);
  const Outcome text = runProgram({"/usr/bin/env", "LC_ALL=C", ZORBE_COMMAND, "list"});
  EXPECT_EQ(text.lines().size(), odd.size() + 1);
  EXPECT_TRUE(std::all_of(text.out.begin(), text.out.end(), [](char c) {
    return c == '\n' || (c >= ' ' && c <= '~');
  })) << text.out;
  EXPECT_THAT(text.out, HasSubstr("\"with blank\" "));
  EXPECT_THAT(text.out, HasSubstr("a\\nb "));
}

TEST_F(ZorbeList, ANameThatIsNotUtf8IsEscapedInJson) {
  makeTable("x\xff\xc0\x80y");
  EXPECT_EQ(names(zorbe({"list", "--json"})), Words{"x\\xff\\xc0\\x80y"});
}

TEST_F(ZorbeList, FindsTheWriterOfATableWithALineBreakInItsName) {
  const std::string name = "a\nb";
  const Descriptor held = lockAndListen(name);
  const RawPeer connection = RawPeer::connect(inRoot(name));
  EXPECT_EQ(listed(name)["writer"]["pids"], Json::array({getpid()}));
  EXPECT_EQ(listed(name)["pending"], 1);
}

TEST_F(ZorbeList, ColumnsStandBelowEachOther) {
  makeTable("short");
  makeTable("a name that is rather longer");
  const Outcome run = zorbe({"list"});
  const size_t column = run.lines()[0].find("WRITER");
  for (size_t i = 1; i < run.lines().size(); ++i) {
    EXPECT_EQ(run.lines()[i].substr(column, 5), "none ") << run.out;
  }
}

TEST_F(ZorbeList, ColoursAreForTerminalsAlone) {
  makeTable("t");
  EXPECT_THAT(onTerminal("NO_COLOR=").out, HasSubstr("\033[1mTABLE"));
  EXPECT_EQ(onTerminal("NO_COLOR=1").out.find('\033'), std::string::npos);
  EXPECT_EQ(onTerminal("TERM=dumb").out.find('\033'), std::string::npos);
  EXPECT_EQ(zorbe({"list"}).out.find('\033'), std::string::npos);
}

TEST_F(ZorbeList, AnOrdinaryUserSeesThatALockIsHeldButNotByWhom) {
  if (!isRoot()) GTEST_SKIP() << "the writer has to be another user's: needs root";
  const Descriptor held = lock("t");
  const Outcome run = zorbeAsOrdinaryUser({"list", "--json"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(names(run), Words{"t"});
  EXPECT_EQ(run.json()["tables"][0]["writer"]["state"], "hidden");
  EXPECT_EQ(run.json()["tables"][0]["writer"]["pids"], Json::array());
}

TEST_F(ZorbeList, AnUnreadableDirectoryDoesNotHideTheOthers) {
  const std::string closed = makeTable("closed");
  makeTable("open");
  fs::permissions(closed, fs::perms::none);
  const Outcome run = zorbeAsOrdinaryUser({"list", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(names(run), Words{"open"});
}

TEST_F(ZorbeList, AnOutputThatCannotBeWrittenIsAFailure) {
  const Outcome run =
      runProgram({"/bin/sh", "-c", "exec \"$0\" list > /dev/full", std::string(ZORBE_COMMAND)});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("standard output"));
}

}  // namespace
}  // namespace Zorbe::Test
