// SPDX-License-Identifier: MIT
//
// show, owner, metrics, and how the command is used.
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "support/completion.h"
#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;
using testing::Not;

class ZorbeQuestions : public Command {
 protected:
  static std::string complete(const Words& commandLine) {
    return completionsOf(fs::path(ZORBE_COMMAND).parent_path(), commandLine);
  }
};

TEST_F(ZorbeQuestions, ShowReportsEveryFileWithModeAndSize) {
  const std::string path = makeTable("t");
  writeFile(path + "/slots", "12345", 0640);
  writeFile(path + "/stranger", "");
  const Outcome run = zorbe({"show", "t", "--json"});
  EXPECT_EQ(run.status, 0);
  const Json files = run.json()["files"];
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(files[0]["name"], "fenix");
  EXPECT_EQ(files[1]["name"], "slots");
  EXPECT_EQ(files[1]["mode"], "0640");
  EXPECT_EQ(files[1]["size"], 5);
  EXPECT_EQ(files[1]["ours"], true);
  EXPECT_EQ(files[2]["ours"], false);
}

TEST_F(ZorbeQuestions, ShowReportsSocketCorruptionAndLastOwner) {
  const std::string path = makeTable("t");
  writeFile(path + "/corruption-detected", "Pid 7 thinks it is corrupted: \033[2Jtorn\n");
  const Descriptor held = lock("t");
  const Outcome run = zorbe({"show", "t"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, testing::ContainsRegex("socket +zorbe_t_[0-9a-f]{8}\n"));
  EXPECT_THAT(run.out, HasSubstr("Pid 7 thinks it is corrupted: \\x1b[2Jtorn\n"));
  EXPECT_THAT(run.out, HasSubstr("pid " + std::to_string(getpid())));
  EXPECT_THAT(run.out, testing::ContainsRegex("last owner +/"));
}

TEST_F(ZorbeQuestions, ShowOfNoTableIsNo) {
  const Outcome run = zorbe({"show", "none"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "zorbe: no table none at " + inRoot("none") + "\n");
  EXPECT_FALSE(fs::exists(inRoot("none")));
}

TEST_F(ZorbeQuestions, OwnerNamesTheHolderOfTheLock) {
  ChildProcess writer = startWriter("quotes");
  const Outcome run = zorbe({"owner", "quotes"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("quotes: pid " + std::to_string(writer.pid()) + ", alive, "));
  EXPECT_THAT(run.out, HasSubstr("/quotes-writer"));
}

TEST_F(ZorbeQuestions, OwnerOfATableWithoutWriterIsNone) {
  makeTable("t");
  const Outcome run = zorbe({"owner", "t"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "t: nobody\n");
  EXPECT_EQ(zorbe({"owner", "t", "--json"}).json()["writer"], nullptr);
}

TEST_F(ZorbeQuestions, OwnerOfATableThatIsNotThereSaysSo) {
  const Outcome run = zorbe({"owner", "none"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "zorbe: no table none at " + inRoot("none") + "\n");
  EXPECT_EQ(zorbe({"owner", "none", "--json"}).json()["directory"], false);
}

TEST_F(ZorbeQuestions, ABaseThatCannotBeReadIsAFailureWithItsReason) {
  makeTable("base/t");
  fs::permissions(rootPath(), fs::perms(0777));
  writeFile(inRoot("file"), "");
  fs::permissions(inRoot("base"), fs::perms::none);
  for (const Words& words :
       {Words{"list"}, Words{"metrics"}, Words{"show", "t"}, Words{"owner", "t"},
        Words{"probe", "t"}, Words{"remove", "t"}, Words{"watch", "t"}, Words{"list", "--json"}}) {
    for (const auto& [base, reason] : {std::pair(inRoot("base"), "Permission denied"),
                                       std::pair(inRoot("file"), "Not a directory")}) {
      Words all = words;
      all.insert(all.end(), {"--root", base});
      const Outcome run = zorbeAsOrdinaryUser(all);
      EXPECT_EQ(run.status, 2) << testing::PrintToString(all) << run.out;
      EXPECT_EQ(run.out, "");
      EXPECT_EQ(run.err, "zorbe: " + base + ": " + reason + "\n");
    }
  }
  fs::permissions(inRoot("base"), fs::perms(0777));
}

TEST_F(ZorbeQuestions, AnOrdinaryUserLearnsThatTheOwnerIsHidden) {
  if (!isRoot()) GTEST_SKIP() << "the writer has to be another user's: needs root";
  const Descriptor held = lock("t");
  const Outcome run = zorbeAsOrdinaryUser({"owner", "t"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("that you may not inspect, perhaps "));
  EXPECT_THAT(run.out, HasSubstr(":" + std::to_string(getpid()) + " cmdline"));
}

TEST_F(ZorbeQuestions, MetricsAreInTheExpositionFormat) {
  ChildProcess writer = startWriter("quotes");
  makeTable("odd \"\\\nname");
  const Outcome run = zorbe({"metrics"});
  EXPECT_EQ(run.status, 0);
  const std::regex wellFormed(
      "# HELP zorbe_[a-z_]+ .+|# TYPE zorbe_[a-z_]+ (gauge|counter)|"
      "zorbe_[a-z_]+(\\{([a-z]+=\"([^\"\\\\]|\\\\.)*\",?)+\\})? [0-9]+(\\.[0-9]+)?");
  for (const std::string& line : run.lines())
    EXPECT_TRUE(std::regex_match(line, wellFormed)) << line;
  EXPECT_THAT(run.lines(), testing::Contains("zorbe_tables 2"));
  EXPECT_THAT(run.lines(), testing::Contains("zorbe_writer_up{table=\"quotes\"} 1"));
  EXPECT_THAT(run.lines(),
              testing::Contains("zorbe_writer_up{table=\"odd \\\"\\\\\\\\\\nname\"} 0"));
  EXPECT_THAT(run.out, HasSubstr("zorbe_writer_info{table=\"quotes\",pid=\"" +
                                 std::to_string(writer.pid()) + "\""));
}

TEST_F(ZorbeQuestions, EveryFamilyOfMetricsIsDeclaredOnceAndBeforeItsValues) {
  const Descriptor held = lock("t");
  const Outcome run = zorbe({"metrics"});
  std::vector<std::string> declared;
  for (const std::string& line : run.lines()) {
    if (line.rfind("# HELP ", 0) == 0) {
      const std::string name = line.substr(7, line.find(' ', 7) - 7);
      EXPECT_THAT(declared, Not(testing::Contains(name)));
      declared.push_back(name);
    } else if (line[0] != '#') {
      EXPECT_EQ(line.substr(0, line.find_first_of("{ ")), declared.back());
    }
  }
}

TEST_F(ZorbeQuestions, EverySubcommandHasHelp) {
  for (const char* name : {"list", "show", "owner", "watch", "probe", "remove", "doctor", "metrics",
                           "get", "dump", "tail", "feed"}) {
    const Outcome run = zorbe({name, "--help"});
    EXPECT_EQ(run.status, 0) << name;
    EXPECT_THAT(run.out, HasSubstr(std::string("Usage: zorbe ") + name));
    EXPECT_THAT(run.out, HasSubstr("Exit status: 0 yes, 1 no, 2 wrong use or failure."));
    EXPECT_THAT(run.out, HasSubstr("--root DIR"));
  }
}

TEST_F(ZorbeQuestions, WrongUseIsTwo) {
  for (const Words& words :
       {Words{}, Words{"nonsense"}, Words{"show"}, Words{"show", "a", "b"},
        Words{"list", "--nonsense"}, Words{"probe", "t", "--timeout", "0"},
        Words{"probe", "t", "--timeout", "nan"}, Words{"probe", "t", "--timeout", "1e9"}}) {
    const Outcome run = zorbe(words);
    EXPECT_EQ(run.status, 2) << testing::PrintToString(words);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err, "");
  }
}

TEST_F(ZorbeQuestions, TheShellCompletesSubcommandsOptionsAndTables) {
  makeTable("quotes");
  makeTable("quo vadis");
  EXPECT_EQ(complete({"zorbe", "pro"}), "probe\n");
  EXPECT_EQ(complete({"zorbe", "probe", "--ti"}), "--timeout\n");
  EXPECT_EQ(complete({"zorbe", "show", "quo"}), "quo\\ vadis\nquotes\n");
  EXPECT_EQ(complete({"zorbe", "doctor", "quot"}), "quotes\n");
  EXPECT_EQ(complete({"zorbe", "list", "quot"}), "");
  EXPECT_EQ(complete({"zorbe", "list", "--wi"}), "--wide\n");
  EXPECT_EQ(complete({"zorbe", "dump", "quot"}), "quotes\n");
  EXPECT_EQ(complete({"zorbe", "dump", "--un"}), "--unsorted\n");
  EXPECT_EQ(complete({"zorbe", "feed", "--f"}), "--field\n--format\n");
  EXPECT_EQ(complete({"zorbe", "feed", "--format", "j"}), "json\n");
  EXPECT_EQ(complete({"zorbe", "tail", "quotes", "--n"}), "--new\n");
  EXPECT_EQ(complete({"zorbe", "show", "--root", inRoot("none"), "quo"}), "");
}

TEST_F(ZorbeQuestions, TheShellCompletesNamesAsTheyAreTyped) {
  for (const char* name : {"quo vadis", "it's $5", "back\\slash", "plain"}) makeTable(name);
  EXPECT_EQ(complete({"zorbe", "show", "quo\\ v"}), "quo\\ vadis\n");
  EXPECT_EQ(complete({"zorbe", "show", "\"quo v"}), "quo vadis\n");
  EXPECT_EQ(complete({"zorbe", "show", "'quo v"}), "quo vadis\n");
  EXPECT_EQ(complete({"zorbe", "show", "it"}), "it\\'s\\ \\$5\n");
  EXPECT_EQ(complete({"zorbe", "show", "\"it"}), "it's \\$5\n");
  EXPECT_EQ(complete({"zorbe", "show", "'it"}), "it'\\''s $5\n");
  EXPECT_EQ(complete({"zorbe", "show", "back"}), "back\\\\slash\n");
  EXPECT_EQ(complete({"zorbe", "show", "back\\\\"}), "back\\\\slash\n");
}

TEST_F(ZorbeQuestions, AMisspelledSubcommandIsNamedWithTheOneThatWasMeant) {
  for (const auto& [typed, meant] :
       {std::pair("lst", "list"), std::pair("lsit", "list"), std::pair("onwer", "owner"),
        std::pair("metric", "metrics"), std::pair("doctro", "doctor")}) {
    const Outcome run = zorbe({typed, "t"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, testing::StartsWith(std::string("zorbe: there is no subcommand ") + typed +
                                             "; did you mean " + meant + "?\n"));
  }
  EXPECT_THAT(zorbe({"nonsense"}).err,
              testing::StartsWith("zorbe: there is no subcommand nonsense\n"));
}

TEST_F(ZorbeQuestions, WrongUseReachesNoTerminalAsACommand) {
  for (const Words& words : {Words{"a\033[2J"}, Words{"show", "a", "b\033[2J"}}) {
    const Outcome run = zorbe(words);
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("\\x1b[2J"));
  }
}

TEST_F(ZorbeQuestions, HelpThatCannotBeWrittenIsAFailure) {
  for (const char* words : {"--help", "list --help", "--version"}) {
    const Outcome run = runProgram(
        {"/bin/sh", "-c", std::string("exec \"$0\" ") + words + " > /dev/full", ZORBE_COMMAND});
    EXPECT_EQ(run.status, 2) << words;
    EXPECT_THAT(run.err, HasSubstr("standard output"));
  }
}

TEST_F(ZorbeQuestions, OneIsNoPlural) {
  const std::string path = makeTable("t");
  const Descriptor held = lockAndListen("t");
  EXPECT_THAT(zorbe({"doctor"}).out, HasSubstr("1 table\n"));
}

TEST_F(ZorbeQuestions, TablesMayBeCalledLikeSubcommandsAndOptions) {
  for (const char* name : {"list", "show", "--json"}) {
    makeTable(name);
    const Outcome run = zorbe({"show", "--json", "--", name});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.json()["name"], name);
  }
}

}  // namespace
}  // namespace Zorbe::Test
