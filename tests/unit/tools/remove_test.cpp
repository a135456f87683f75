// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

class ZorbeRemove : public Command {
 protected:
  /// Everything below the base directory.
  std::vector<std::string> disk() const {
    std::vector<std::string> paths;
    for (const auto& entry : fs::recursive_directory_iterator(rootPath())) {
      paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  /// The command refuses, names the reason, and changes nothing.
  void expectRefused(const std::string& table, const std::string& why) {
    const auto before = disk();
    const Outcome run = zorbe({"remove", table});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_THAT(run.err, HasSubstr(why));
    EXPECT_EQ(disk(), before);
  }
};

TEST_F(ZorbeRemove, NothingIsLeftOfATableWhoseWriterWasKilled) {
  ChildProcess writer = startWriter("t");
  writer.signal(SIGKILL);
  EXPECT_EQ(writer.finish(), -SIGKILL);
  const Outcome run = zorbe({"remove", "t"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(fs::exists(inRoot("t")));
}

TEST_F(ZorbeRemove, EveryFileOfTheCatalogueGoes) {
  const std::string path = makeTable("t");
  for (const char* name :
       {"slots", "buckets", "conquer.1", "conquer.2", "last-owner", "corruption-detected"}) {
    writeFile(path + "/" + name, "x");
  }
  const Outcome run = zorbe({"remove", "t", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.json()["files"].size(), 7U);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(ZorbeRemove, AnEmptyDirectoryGoesToo) {
  fs::create_directory(inRoot("t"));
  EXPECT_EQ(zorbe({"remove", "t"}).status, 0);
  EXPECT_FALSE(fs::exists(inRoot("t")));
}

TEST_F(ZorbeRemove, ATableWithAWriterStaysAndTheWriterIsNamed) {
  ChildProcess writer = startWriter("t");
  expectRefused("t", "its writer is pid " + std::to_string(writer.pid()) + " (");
  EXPECT_EQ(zorbe({"probe", "t", "--timeout", "30"}).status, 0);
}

TEST_F(ZorbeRemove, TheNoteOfTheWriterStaysWhenItIsRefused) {
  const std::string path = makeTable("t");
  writeFile(path + "/last-owner", "somebody:1 cmdline: ''\n");
  writeFile(path + "/stranger", "");
  expectRefused("t", path + "/stranger does not belong to the table");
  EXPECT_EQ(fs::file_size(path + "/last-owner"), 23U);
}

TEST_F(ZorbeRemove, ATableInsideTheTableKeepsItThere) {
  makeTable("t");
  makeTable("t/inner");
  expectRefused("t", inRoot("t/inner") + " does not belong to the table");
}

TEST_F(ZorbeRemove, ADirectoryThatIsCalledLikeAFileKeepsItThere) {
  const std::string path = makeTable("t");
  fs::create_directory(path + "/slots");
  expectRefused("t", path + "/slots is a directory, not a file of the table");
}

TEST_F(ZorbeRemove, TheNameOfAForeignFileStaysOnItsLine) {
  const std::string path = makeTable("t");
  writeFile(path + "/a\nb\033[2J", "");
  expectRefused("t", path + "/a\\nb\\x1b[2J does not belong");
}

TEST_F(ZorbeRemove, APipeWithTheNameOfAFileGoesLikeTheFile) {
  for (const char* name : {"last-owner", "slots", "fenix"}) {
    const std::string path = makeTable("t");
    fs::remove(path + "/" + name);
    ASSERT_EQ(mkfifo((path + "/" + name).c_str(), 0666), 0);
    ChildProcess removal = start({"remove", "t"});
    EXPECT_EQ(removal.finish(), 0) << name;
    EXPECT_FALSE(fs::exists(path)) << name;
  }
}

TEST_F(ZorbeRemove, ALinkWithTheNameOfTheNoteLeavesWhatItLeadsTo) {
  const std::string path = makeTable("t");
  writeFile(inRoot("precious"), "content");
  fs::create_symlink(inRoot("precious"), path + "/last-owner");
  EXPECT_EQ(zorbe({"remove", "t"}).status, 0);
  EXPECT_EQ(fs::file_size(inRoot("precious")), 7U);
}

TEST_F(ZorbeRemove, ASymbolicLinkToATableIsNotFollowed) {
  makeTable("t");
  fs::create_directory_symlink("t", inRoot("link"));
  expectRefused("link", inRoot("link") + " is a symbolic link");
}

TEST_F(ZorbeRemove, ATableThatIsNotThereIsNo) {
  expectRefused("none", "there is no " + inRoot("none"));
}

TEST_F(ZorbeRemove, WhatCannotBeRemovedIsAFailure) {
  const std::string path = makeTable("t");
  fs::permissions(path, fs::perms(0555));
  const Outcome run = zorbeAsOrdinaryUser({"remove", "t"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("Permission denied"));
  EXPECT_TRUE(fs::exists(path + "/fenix"));
}

TEST_F(ZorbeRemove, AnOrdinaryUserMayRemoveAnothersTable) {
  makeTable("t");
  fs::permissions(rootPath(), fs::perms(0777));
  const Outcome run = zorbeAsOrdinaryUser({"remove", "t"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(fs::exists(inRoot("t")));
}

}  // namespace
}  // namespace Zorbe::Test
