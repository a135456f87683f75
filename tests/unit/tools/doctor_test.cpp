// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

class ZorbeDoctor : public Command {
 protected:
  ZorbeDoctor() { fs::permissions(rootPath(), fs::perms(0777)); }

  /// What a check found that is wrong, and nothing else is: "" when nothing is.
  static std::string problem(const Outcome& run, const std::string& check) {
    std::string found;
    const Json output = run.json();
    for (const Json& finding : output["findings"]) {
      if (finding["severity"] != "problem" && finding["severity"] != "critical") continue;
      EXPECT_EQ(finding["check"], check) << finding;
      EXPECT_TRUE(finding["fix"].is_string()) << finding;
      found += finding["what"].get<std::string>() + "\n-> " + finding["fix"].get<std::string>();
    }
    EXPECT_EQ(run.status, found.empty() ? 0 : 1) << run.err;
    EXPECT_EQ(run.json()["healthy"], found.empty());
    return found;
  }

  /// The first finding of a check; null when there is none.
  static Json finding(const Outcome& run, const std::string& check) {
    const Json output = run.json();
    for (const Json& found : output["findings"]) {
      if (found["check"] == check) return found;
    }
    return nullptr;
  }

  static std::string problem(const std::string& check) {
    return problem(zorbe({"doctor", "--json"}), check);
  }

  static constexpr int kSkipped = 100;

  /// The command in a user namespace of its own, in which this limit is 0.
  static Outcome withLimit(const std::string& limit) {
    return runProgram({"/bin/sh", "-c",
                       "unshare -r true || exit 100; exec unshare -r /bin/sh -c '"
                       "echo 0 > /proc/sys/user/" +
                           limit + " && exec \"$0\" doctor --json' \"$0\"",
                       ZORBE_COMMAND});
  }

  static void setTime(const std::string& path, time_t seconds) {
    const timespec times[] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
};

TEST_F(ZorbeDoctor, AHostInOrderIsYes) {
  const ChildProcess writer = startWriter("t");
  EXPECT_EQ(problem(""), "");
}

TEST_F(ZorbeDoctor, ABaseThatAnybodyMayMakeIsNoProblem) {
  EXPECT_EQ(problem(zorbe({"doctor", "--json", "--root", inRoot("later")}), ""), "");
}

TEST_F(ZorbeDoctor, ABaseThatTheUserCannotMakeIsAProblem) {
  fs::create_directory(inRoot("closed"));
  fs::permissions(inRoot("closed"), fs::perms(0555));
  const std::string base = inRoot("closed/base");
  const Outcome run = zorbeAsOrdinaryUser({"doctor", "--json", "--root", base});
  EXPECT_THAT(problem(run, "base"), HasSubstr("mkdir -p " + base + " && chmod 0777 " + base));
}

TEST_F(ZorbeDoctor, ABaseThatIsNotWritableIsAProblemForTheUserWhoMayNot) {
  fs::create_directory(inRoot("base"));
  fs::permissions(inRoot("base"), fs::perms(0555));
  const Outcome run = zorbeAsOrdinaryUser({"doctor", "--json", "--root", inRoot("base")});
  EXPECT_THAT(problem(run, "base"), HasSubstr("chmod 0777 " + inRoot("base")));
}

TEST_F(ZorbeDoctor, ABaseThatIsAFileIsAProblem) {
  writeFile(inRoot("file"), "");
  EXPECT_THAT(problem(zorbe({"doctor", "--json", "--root", inRoot("file")}), "base"),
              HasSubstr("Not a directory"));
}

TEST_F(ZorbeDoctor, ModesThatKeepOthersOutAreProblems) {
  const std::string path = makeTable("t");
  fs::permissions(path, fs::perms(0755));
  EXPECT_THAT(problem("mode"), HasSubstr("-> as its owner: chmod 0777 " + path));
  fs::permissions(path, fs::perms(0777));
  fs::permissions(path + "/fenix", fs::perms(0644));
  EXPECT_THAT(problem("mode"), HasSubstr("-> as its owner: chmod 0666 " + path + "/fenix"));
}

TEST_F(ZorbeDoctor, ANameTooLongForASocketIsAProblem) {
  fs::create_directory(inRoot(std::string(91, 'n')));
  EXPECT_EQ(problem("name"), "");
  fs::create_directory(inRoot(std::string(92, 'n')));
  EXPECT_THAT(problem("name"), HasSubstr(std::string(92, 'n')));
}

TEST_F(ZorbeDoctor, AMarkerFromBeforeTheLastIncarnationIsStale) {
  const std::string path = makeTable("t");
  writeFile(path + "/corruption-detected", "Pid 1 thinks so\n");
  setTime(path + "/corruption-detected", 1000);
  setTime(path + "/fenix", 2000);
  EXPECT_THAT(problem("corruption"), HasSubstr("stale"));
  EXPECT_THAT(problem("corruption"), HasSubstr("-> rm " + path + "/corruption-detected"));
}

TEST_F(ZorbeDoctor, AMarkerOnTheLastIncarnationIsCorruption) {
  const std::string path = makeTable("t");
  writeFile(path + "/corruption-detected", "Pid 1 thinks so\n");
  setTime(path + "/fenix", 1000);
  EXPECT_THAT(problem("corruption"), HasSubstr("t is marked as corrupt: Pid 1 thinks so\n"));
  EXPECT_THAT(problem("corruption"), HasSubstr("zorbe remove --root " + rootPath() + " -- t,"));
}

TEST_F(ZorbeDoctor, AWriterWithoutADirectoryIsAProblem) {
  const Descriptor held = lockAndListen("t");
  fs::remove_all(inRoot("t"));
  EXPECT_THAT(problem("directory"), HasSubstr("t has a writer, but no directory"));
}

TEST_F(ZorbeDoctor, AFileThatIsNoneIsAProblem) {
  const std::string path = makeTable("t");
  fs::create_directory(path + "/slots");
  EXPECT_THAT(problem("file"), HasSubstr(path + "/slots is a directory, not a file"));
}

TEST_F(ZorbeDoctor, TwoWritersInOneDirectoryAreTheFirstFinding) {
  makeTable("t");
  fs::permissions(inRoot("t"), fs::perms(0700));
  const Descriptor one = lockAndListen("t");
  const Descriptor other = lockAndListen("t/");
  const Outcome run = zorbe({"doctor", "--json"});
  EXPECT_EQ(run.status, 1);
  const Json first = run.json()["findings"][0];
  EXPECT_EQ(first["severity"], "critical");
  EXPECT_EQ(first["check"], "writers");
  const std::string pid = "pid " + std::to_string(getpid());
  EXPECT_THAT(first["what"].get<std::string>(),
              testing::ContainsRegex("^t has 2 writers in one directory.*" + pid +
                                     ".*lock zorbe_t_.*" + pid + ".*lock zorbe__"));
  EXPECT_THAT(zorbe({"doctor"}).out, testing::StartsWith("critical  writers "));
  EXPECT_THAT(zorbe({"metrics"}).lines(), testing::Contains("zorbe_writers{table=\"t\"} 2"));
}

TEST_F(ZorbeDoctor, ALinkToATableIsNoSecondWriterAndNoSecondFinding) {
  makeTable("t");
  fs::create_directory_symlink("t", inRoot("link"));
  fs::create_directory_symlink("t", inRoot("u"));
  const Descriptor held = lockAndListen("t");
  EXPECT_EQ(problem(""), "");
  fs::permissions(inRoot("t"), fs::perms(0700));
  EXPECT_THAT(problem("mode"), HasSubstr("/t has mode 0700"));
}

TEST_F(ZorbeDoctor, AStoppedWriterWithAFullQueueIsAProblem) {
  ChildProcess writer = startWriter("t");
  writer.stop();
  const auto connections = fillQueue("t");
  const std::string pid = std::to_string(writer.pid());
  EXPECT_THAT(
      problem("writer"),
      testing::AllOf(HasSubstr("t: its writer, pid " + pid), HasSubstr(" is stopped, with "),
                     HasSubstr("the queue is full"), HasSubstr("-> kill -CONT " + pid)));
}

TEST_F(ZorbeDoctor, AFullQueueOfAWriterThatRunsIsAProblem) {
  const Descriptor held = lockAndListen("t");
  const auto connections = fillQueue("t");
  EXPECT_THAT(problem("writer"), HasSubstr("has 6 connections waiting to be accepted: the queue"));
}

TEST_F(ZorbeDoctor, AHolderOfTheLockThatDoesNotListenIsAProblem) {
  makeTable("t");
  const Descriptor held = lock("t");
  EXPECT_THAT(problem("writer"), HasSubstr("holds the lock and does not listen"));
}

TEST_F(ZorbeDoctor, ATableWhoseWriterWasKilledIsNoted) {
  ChildProcess writer = startWriter("t");
  const std::string note = "quotes-writer:" + std::to_string(writer.pid());
  writer.kill();
  const Outcome run = zorbe({"doctor", "--json"});
  EXPECT_EQ(run.status, 0) << run.out;
  const Json found = finding(run, "writer");
  EXPECT_EQ(found["severity"], "note");
  EXPECT_THAT(found["what"].get<std::string>(),
              testing::AllOf(HasSubstr("t has files and no writer"), HasSubstr(note)));
  EXPECT_EQ(found["fix"], "start its writer, or zorbe remove --root " + rootPath() + " -- t");
}

TEST_F(ZorbeDoctor, AFenixThatIsNoIdIsAProblem) {
  const std::string path = makeTable("t");
  for (const char* garbage : {"garbage\n", "12abc\n", "", "0\n", "-5\n", "4294967296\n"}) {
    writeFile(path + "/fenix", garbage);
    EXPECT_THAT(problem("fenix"), HasSubstr(path + "/fenix ")) << garbage;
  }
  writeFile(path + "/fenix", "4294967295\n");
  EXPECT_EQ(problem(""), "");
}

TEST_F(ZorbeDoctor, AdviceHoldsForAnyEnvironment) {
  fs::create_directory(inRoot("a base"));
  fs::permissions(inRoot("a base"), fs::perms(0777));
  const std::string path = makeTable("a base/corrupt");
  writeFile(path + "/corruption-detected", "torn\n");
  setTime(path + "/fenix", 1000);
  const Outcome run = zorbe({"doctor", "--json", "--root", inRoot("a base/")});
  EXPECT_THAT(problem(run, "corruption"),
              HasSubstr("zorbe remove --root $'" + inRoot("a base") + "' -- corrupt,"));
}

TEST_F(ZorbeDoctor, ModesOfManyTablesAreOneFindingForDirectoriesAndOneForFiles) {
  for (int i = 10; i < 30; ++i) {
    const std::string path = makeTable("t" + std::to_string(i));
    fs::permissions(path, fs::perms(0755));
    fs::permissions(path + "/fenix", fs::perms(0644));
  }
  const Outcome run = zorbe({"doctor", "--json"});
  const Json findings = run.json()["findings"];
  Json modes = Json::array();
  for (const Json& found : findings) {
    if (found["check"] == "mode") modes.push_back(found);
  }
  ASSERT_EQ(modes.size(), 2U) << run.out;
  EXPECT_THAT(modes[0]["what"].get<std::string>(),
              HasSubstr("20 directories do not have mode 0777: " + inRoot("t10") + ", "));
  EXPECT_THAT(modes[1]["what"].get<std::string>(), HasSubstr("20 files do not have mode 0666: "));
  EXPECT_THAT(modes[1]["what"].get<std::string>(), HasSubstr(" and 15 more; "));
  EXPECT_EQ(modes[0]["subjects"].size(), 20U);
  EXPECT_EQ(modes[1]["subjects"][0], inRoot("t10/fenix"));
  EXPECT_EQ(finding(run, "writer")["subjects"].size(), 20U);
}

TEST_F(ZorbeDoctor, AFewModesAreChangedByOneCommand) {
  for (const char* name : {"t", "u"}) fs::permissions(makeTable(name), fs::perms(0700));
  EXPECT_THAT(problem("mode"),
              HasSubstr("-> as their owners: chmod 0777 " + inRoot("t") + " " + inRoot("u")));
}

TEST_F(ZorbeDoctor, OfOneTableItReportsThatTableAlone) {
  fs::permissions(makeTable("t"), fs::perms(0700));
  fs::permissions(makeTable("u"), fs::perms(0700));
  EXPECT_THAT(problem(zorbe({"doctor", "t", "--json"}), "mode"), HasSubstr(inRoot("t") + " has"));
  EXPECT_EQ(zorbe({"doctor", "none"}).status, 1);
  EXPECT_EQ(zorbe({"doctor", "none"}).err, "zorbe: no table none at " + inRoot("none") + "\n");
}

TEST_F(ZorbeDoctor, ABaseOnADiskIsNotedAndOneInMemoryIsNot) {
  const Outcome run = runProgram(
      {"/bin/sh", "-c",
       "unshare -r -m true || exit 100\n"
       "exec unshare -r -m /bin/sh -c 'mount -t tmpfs -o mode=0777 tmpfs \"$SHMEM_ROOT\" && "
       "exec \"$0\" doctor --json' \"$0\"",
       ZORBE_COMMAND});
  if (run.status == kSkipped) GTEST_SKIP() << "needs user namespaces: " << run.err;
  EXPECT_EQ(finding(run, "storage")["severity"], "ok") << run.out << run.err;
  const Json outside = finding(zorbe({"doctor", "--json", "--root", "/proc/self"}), "storage");
  EXPECT_EQ(outside["severity"], "note");
  EXPECT_THAT(outside["what"].get<std::string>(), HasSubstr("is not on tmpfs: "));
  EXPECT_THAT(outside["fix"].get<std::string>(), HasSubstr("mount -t tmpfs "));
}

TEST_F(ZorbeDoctor, CommandsForOddNamesAreSafeToPaste) {
  const std::string path = makeTable("$(touch x)\n'");
  fs::permissions(path, fs::perms(0700));
  EXPECT_THAT(problem("mode"), HasSubstr("chmod 0777 $'" + rootPath() + "/$(touch x)\\n\\''"));
}

TEST_F(ZorbeDoctor, NoInotifyInstanceOrWatchLeftIsAProblem) {
  for (const char* what : {"instances", "watches"}) {
    const Outcome run = withLimit(std::string("max_inotify_") + what);
    if (run.status == kSkipped) GTEST_SKIP() << "needs user namespaces: " << run.err;
    EXPECT_THAT(problem(run, "inotify"),
                HasSubstr(std::string("sysctl fs.inotify.max_user_") + what + "="));
  }
}

TEST_F(ZorbeDoctor, TextHasTheFixOnALineOfItsOwn) {
  fs::permissions(makeTable("t"), fs::perms(0700));
  const Outcome run = zorbe({"doctor"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, testing::ContainsRegex("problem +mode +/[^\n]* has mode 0700"));
  EXPECT_THAT(run.out, testing::ContainsRegex("\n +-> as its owner: chmod 0777 /"));
}

}  // namespace
}  // namespace Zorbe::Test
