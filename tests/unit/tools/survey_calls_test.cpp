// SPDX-License-Identifier: MIT
//
// Which system calls the commands that look at all tables make, and how many.
#include <unistd.h>

#include <fstream>
#include <map>

#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

class ZorbeSurvey : public Command {
 protected:
  /// How often a line of the trace has these words.
  static long count(const std::string& trace, const std::string& words) {
    return countOf(trace, words, words);
  }

  /// Of the lines that have `words`, those that have `others`, too.
  static long countOf(const std::string& trace, const std::string& words,
                      const std::string& others) {
    std::ifstream file(trace);
    long found = 0;
    for (std::string line; std::getline(file, line);) {
      const bool wanted = line.find(words) != std::string::npos;
      found += wanted && line.find(others) != std::string::npos ? 1 : 0;
    }
    return found;
  }
};

TEST_F(ZorbeSurvey, NothingInATableIsOpenedSoThatItCouldBlock) {
  const std::string path = makeTable("t");
  writeFile(path + "/last-owner", "x");
  writeFile(path + "/corruption-detected", "x");
  for (const char* command : {"list", "metrics", "doctor"}) {
    const std::string trace = inRoot("trace");
    const Outcome run = traced("openat", trace, {command});
    if (run.err.find("PTRACE") != std::string::npos) GTEST_SKIP() << run.err;
    EXPECT_GE(count(trace, "\"" + path), 4) << "the directory and three files";
    EXPECT_EQ(count(trace, "\"" + rootPath()), countOf(trace, "\"" + rootPath(), "O_NONBLOCK"));
  }
}

TEST_F(ZorbeSurvey, TwoHundredTablesTakeOnePassOverTheProcesses) {
  std::vector<Descriptor> held;
  for (int i = 0; i < 200; ++i) held.push_back(lock("t" + std::to_string(i)));
  for (const char* command : {"list", "metrics", "doctor"}) {
    const std::string trace = inRoot("trace");
    const Outcome run = traced("openat", trace, {command});
    if (run.err.find("PTRACE") != std::string::npos) GTEST_SKIP() << run.err;
    EXPECT_NE(run.status, 2) << run.err;
    EXPECT_EQ(count(trace, "\"/proc\""), 1) << command;
    EXPECT_EQ(count(trace, "\"/proc/net/unix\""), 1) << command;
    EXPECT_EQ(count(trace, "\"/proc/" + std::to_string(getpid()) + "/fd\""), 1) << command;
  }
  const Json tables = zorbe({"list", "--json"}).json()["tables"];
  EXPECT_EQ(tables.size(), 200U);
  for (const Json& table : tables) EXPECT_EQ(table["writer"]["pids"], Json::array({getpid()}));
}

TEST_F(ZorbeSurvey, AHolderOfManyUnknownLocksIsLookedAtOnce) {
  fs::create_directories(inRoot("a/b"));
  makeTable("t");
  std::vector<Descriptor> held;
  for (int i = 0; i < 50; ++i) held.push_back(lock("a/b/../../other" + std::to_string(i)));
  const std::string trace = inRoot("trace");
  const Outcome run = traced("openat", trace, {"owner", "t"});
  if (run.err.find("PTRACE") != std::string::npos) GTEST_SKIP() << run.err;
  const std::string process = "\"/proc/" + std::to_string(getpid());
  EXPECT_EQ(count(trace, process + "/environ\""), 1);
  EXPECT_EQ(count(trace, process + "/maps\""), 1);
}

TEST_F(ZorbeSurvey, EveryTableTakesAFewSystemCalls) {
  constexpr long kMore = 40;
  constexpr long kEach = 50;  // calls for a table with a writer
  std::vector<Descriptor> held;
  std::map<std::string, long> few;
  for (const bool first : {true, false}) {
    for (int i = 0; i < kMore; ++i) held.push_back(lock("t" + std::to_string(held.size())));
    for (const char* command : {"list", "metrics", "doctor"}) {
      const std::string trace = inRoot("trace");
      const Outcome run = traced("%file,%desc,%network", trace, {command});
      if (run.err.find("PTRACE") != std::string::npos) GTEST_SKIP() << run.err;
      const long calls = count(trace, "(");
      if (first) {
        few[command] = calls;
      } else {
        EXPECT_LT(calls - few[command], kMore * kEach) << command;
      }
    }
  }
}

}  // namespace
}  // namespace Zorbe::Test
