// SPDX-License-Identifier: MIT
//
// A writer's lock is named after its directory's path as the writer spells it. The command finds
// the writer under every spelling.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "sockets/abstract_name.h"
#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::Contains;
using testing::HasSubstr;

/// A writer of the table "t", which spells it as a test wishes.
class ZorbeSpelling : public Command {
 protected:
  ZorbeSpelling() { makeTable("t"); }

  /// A writer whose environment has this base directory.
  ChildProcess startWriterBelow(const std::string& base, const std::string& table) {
    ChildProcess writer({"/usr/bin/env", "--chdir=" + rootPath(), "SHMEM_ROOT=" + base,
                         std::string(ZORBE_EXAMPLE_PROGRAMS) + "/quotes-writer", table});
    writer.awaitLine("read ");
    return writer;
  }

  /// Each command finds this process as the writer of "t", and `remove` removes nothing.
  static void expectFound(pid_t pid, const Words& options = {}) {
    const auto run = [&](Words words) {
      words.insert(words.end(), options.begin(), options.end());
      return zorbe(words);
    };
    EXPECT_EQ(run({"owner", "t", "--json"}).json()["writer"]["pids"], Json::array({pid}));
    EXPECT_EQ(run({"show", "t", "--json"}).json()["writer"]["pids"], Json::array({pid}));
    EXPECT_EQ(run({"list", "--json"}).json()["tables"][0]["writer"]["pids"], Json::array({pid}));
    EXPECT_THAT(run({"metrics"}).lines(), Contains("zorbe_writer_up{table=\"t\"} 1"));
    const Outcome removal = run({"remove", "t"});
    EXPECT_EQ(removal.status, 1) << removal.out;
    EXPECT_THAT(removal.err, HasSubstr("its writer is pid " + std::to_string(pid) + " ("));
  }

  static void expectAcknowledges() {
    const Outcome run = zorbe({"probe", "t", "--timeout", "30"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
  }
};

TEST_F(ZorbeSpelling, ATableMayBeGivenWithDotsAndSlashes) {
  const Descriptor held = lock("t");
  for (const char* name : {"t/", "./t", "t/.", "/t", ".//./t//"}) {
    EXPECT_EQ(zorbe({"owner", name, "--json"}).json()["writer"]["pids"], Json::array({getpid()}))
        << name;
    const Outcome removal = zorbe({"remove", name});
    EXPECT_EQ(removal.status, 1) << name;
    EXPECT_THAT(removal.err, HasSubstr("t is not removed: its writer is pid "));
  }
}

TEST_F(ZorbeSpelling, ABaseMayBeGivenWithDotsAndSlashes) {
  const Descriptor held = lock("t");
  for (const std::string& base : {rootPath() + "/", rootPath() + "/.", rootPath() + "//"}) {
    expectFound(getpid(), {"--root", base});
  }
}

TEST_F(ZorbeSpelling, ABaseMayBeGivenBelowTheWorkingDirectory) {
  const Descriptor held = lock("t");
  const Outcome run = runProgram({"/usr/bin/env", "--chdir=" + rootPath(), ZORBE_COMMAND, "owner",
                                  "t", "--json", "--root", "."});
  EXPECT_EQ(run.json()["writer"]["pids"], Json::array({getpid()})) << run.err;
}

TEST_F(ZorbeSpelling, AWriterWithAnotherSpellingOfTheTableIsFound) {
  for (const char* name : {"t/", "./t", "t/.", "./t/"}) {
    const Descriptor held = lock(name);
    expectFound(getpid());
  }
}

TEST_F(ZorbeSpelling, AWriterWithAnotherSpellingOfTheBaseIsFound) {
  for (const std::string& base : {rootPath() + "/", std::string("."), rootPath() + "/./"}) {
    ChildProcess writer = startWriterBelow(base, "t");
    expectFound(writer.pid());
    expectAcknowledges();
    writer.kill();
  }
}

TEST_F(ZorbeSpelling, AWriterThroughASymbolicLinkIsFound) {
  fs::create_directory(inRoot("elsewhere"));
  fs::create_directory_symlink(rootPath(), inRoot("elsewhere/link"));
  ChildProcess writer = startWriterBelow(inRoot("elsewhere/link"), "t");
  expectFound(writer.pid());
  expectAcknowledges();
}

TEST_F(ZorbeSpelling, ASpellingThatNobodyExpectsIsFoundByTheMappedFiles) {
  fs::create_directories(inRoot("a/b"));
  ChildProcess writer = startWriterBelow(rootPath(), "a/b/../../t");
  expectFound(writer.pid());
  expectAcknowledges();
}

TEST_F(ZorbeSpelling, TheFileOfAHiddenWriterKeepsItsTable) {
  if (!isRoot()) GTEST_SKIP() << "the writer has to be another user's: needs root";
  fs::create_directories(inRoot("a/b"));
  const ChildProcess writer = startWriterBelow(rootPath(), "a/b/../../t");
  fs::permissions(rootPath(), fs::perms(0777));
  const Outcome run = zorbeAsOrdinaryUser({"remove", "t"});
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_THAT(run.err, HasSubstr("has locked its file slots"));
  EXPECT_TRUE(fs::exists(inRoot("t/slots")));
}

TEST_F(ZorbeSpelling, TheWriterOfAnotherTableIsNotFound) {
  makeTable("other/t");
  const Descriptor held = lock("./other/t");
  EXPECT_EQ(zorbe({"owner", "t"}).status, 1);
  EXPECT_EQ(zorbe({"owner", "other/t"}).status, 0);
  EXPECT_EQ(zorbe({"remove", "t"}).status, 0);
}

TEST_F(ZorbeSpelling, ATableOfAnotherBaseWithTheSameNameHasItsOwnWriter) {
  fs::create_directory(inRoot("base"));
  makeTable("base/t");
  const ChildProcess writer = startWriterBelow(inRoot("base") + "//", "t");
  EXPECT_EQ(zorbe({"owner", "t"}).status, 1);
  EXPECT_EQ(zorbe({"owner", "t", "--root", inRoot("base")}).status, 0);
}

TEST_F(ZorbeSpelling, AWriterOfAnotherTableIsNoWriterOfTheTableThatItReads) {
  fs::create_directories(inRoot("a/b"));
  const Descriptor held = lock("a/b/../../other");
  const std::string path = inRoot("t/slots");
  writeFile(path, "x");
  for (const int protection : {PROT_READ, PROT_READ | PROT_WRITE}) {
    const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    void* const mapped = mmap(nullptr, 1, protection, MAP_SHARED, file.get(), 0);
    ASSERT_NE(mapped, MAP_FAILED);
    EXPECT_EQ(zorbe({"owner", "t"}).status, protection == PROT_READ ? 1 : 0);
    EXPECT_EQ(munmap(mapped, 1), 0);
  }
}

TEST_F(ZorbeSpelling, NoWriterCanStartUnderAnotherSpellingWhileTheTableIsRemoved) {
  const std::string trace = inRoot("trace");
  const Outcome run = traced("bind,unlink", trace, {"remove", "t"});
  if (run.err.find("PTRACE") != std::string::npos) GTEST_SKIP() << run.err;
  ASSERT_EQ(run.status, 0) << run.err;
  std::ifstream file(trace);
  Words names;
  for (std::string line; std::getline(file, line) && line.find("unlink(") == std::string::npos;) {
    const std::size_t begin = line.find("@\"zorbe_");
    if (begin != std::string::npos)
      names.push_back(line.substr(begin + 2, line.rfind('"') - begin - 2));
  }
  for (const std::string& base : {rootPath(), rootPath() + "/"}) {
    for (const char* name : {"/t", "/t/", "/./t", "/t/."}) {
      EXPECT_THAT(names, Contains(abstractName(base + name))) << base << name;
    }
  }
}

}  // namespace
}  // namespace Zorbe::Test
