// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>

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
      if (finding["severity"] != "problem") continue;
      EXPECT_EQ(finding["check"], check) << finding;
      EXPECT_TRUE(finding["fix"].is_string()) << finding;
      found += finding["what"].get<std::string>() + "\n-> " + finding["fix"].get<std::string>();
    }
    EXPECT_EQ(run.status, found.empty() ? 0 : 1) << run.err;
    EXPECT_EQ(run.json()["healthy"], found.empty());
    return found;
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
  EXPECT_THAT(problem("corruption"), HasSubstr("zorbe remove -- t"));
}

TEST_F(ZorbeDoctor, AWriterWithoutADirectoryIsAProblem) {
  const Descriptor held = lock("t");
  fs::remove_all(inRoot("t"));
  EXPECT_THAT(problem("directory"), HasSubstr("t has a writer, but no directory"));
}

TEST_F(ZorbeDoctor, AFileThatIsNoneIsAProblem) {
  const std::string path = makeTable("t");
  fs::create_directory(path + "/slots");
  EXPECT_THAT(problem("file"), HasSubstr(path + "/slots is a directory, not a file"));
}

TEST_F(ZorbeDoctor, CommandsForOddNamesAreSafeToPaste) {
  const std::string path = makeTable("$(touch x)\n'");
  fs::permissions(path, fs::perms(0700));
  EXPECT_THAT(problem("mode"), HasSubstr("chmod 0777 $'" + rootPath() + "/$(touch x)\\n\\''"));
}

TEST_F(ZorbeDoctor, NoInotifyInstanceLeftIsAProblem) {
  const Outcome run = withLimit("max_inotify_instances");
  if (run.status == kSkipped) GTEST_SKIP() << "needs user namespaces: " << run.err;
  EXPECT_THAT(problem(run, "inotify"), HasSubstr("sysctl fs.inotify.max_user_instances="));
}

TEST_F(ZorbeDoctor, NoInotifyWatchLeftIsAProblem) {
  const Outcome run = withLimit("max_inotify_watches");
  if (run.status == kSkipped) GTEST_SKIP() << "needs user namespaces: " << run.err;
  EXPECT_THAT(problem(run, "inotify"), HasSubstr("sysctl fs.inotify.max_user_watches="));
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
