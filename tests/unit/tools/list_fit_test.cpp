// SPDX-License-Identifier: MIT
#include <csignal>
#include <sstream>

#include "unit/tools/pseudo_terminal.h"
#include "unit/tools/ready_made.h"

namespace Zorbe::Test {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class ZorbeListFit : public ReadyMade {
 protected:
  /// The lines of the list on a terminal.
  static Words onTerminal(int columns, const Words& options = {}) {
    Words words{"/usr/bin/env", "TERM=dumb", "LC_ALL=C.UTF-8", ZORBE_COMMAND, "list"};
    words.insert(words.end(), options.begin(), options.end());
    PseudoTerminal terminal(words, static_cast<unsigned short>(columns));
    EXPECT_EQ(terminal.finish(), 0);
    Words lines;
    std::istringstream text(terminal.rest());
    for (std::string line; std::getline(text, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(line);
    }
    return lines;
  }

  static Words names(const Words& options) {
    Words words{"list", "--json"};
    words.insert(words.end(), options.begin(), options.end());
    const Outcome run = zorbe(words);
    EXPECT_EQ(run.status, 0) << run.err;
    Words names;
    const Json output = run.json();
    for (const Json& table : output["tables"]) names.push_back(table["name"]);
    return names;
  }
};

TEST_F(ZorbeListFit, NoLineIsWiderThanTheTerminal) {
  makeTable("a table with a name that is longer than most of them are");
  ChildProcess writer = startWriter("quotes");
  for (const int columns : {200, 132, 100, 80, 60, 40, 20, 8}) {
    const Words lines = onTerminal(columns);
    EXPECT_THAT(lines, SizeIs(3)) << columns;
    EXPECT_THAT(lines, Each(SizeIs(testing::Le(columns)))) << columns;
  }
}

TEST_F(ZorbeListFit, WhatIsLeftOutFirstIsTheLastOwnerAndTheStateOfTheWriterLast) {
  ChildProcess writer = startWriter("quotes");
  const Words lines = onTerminal(80);
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_THAT(lines[0], HasSubstr("WRITER"));
  EXPECT_THAT(lines[0], HasSubstr("BEHIND"));
  EXPECT_THAT(lines[0], Not(HasSubstr("LAST OWNER")));
  EXPECT_EQ(onTerminal(15).at(0), "TABLE   WRITER");
}

TEST_F(ZorbeListFit, ANameThatDoesNotFitEndsWithDots) {
  makeTable("abcdefghijklmnopqrstuvwxyz");
  EXPECT_EQ(onTerminal(20).at(1), "abcdefghijklmnopq...");
}

TEST_F(ZorbeListFit, CharactersAndNotBytesAreCountedAndCut) {
  std::string name;
  std::string begin;
  for (int i = 0; i < 30; ++i) name += "\u00e9";
  for (int i = 0; i < 17; ++i) begin += "\u00e9";
  makeTable(name);
  EXPECT_EQ(onTerminal(20).at(1), begin + "...");
  EXPECT_THAT(onTerminal(40).at(1), HasSubstr(name + "  none"));
}

TEST_F(ZorbeListFit, WideShowsAllColumnsAndSoDoesAPipe) {
  makeTable("t");
  EXPECT_THAT(onTerminal(40, {"--wide"}).at(0), HasSubstr("LAST OWNER"));
  EXPECT_THAT(zorbe({"list"}).lines().at(0), HasSubstr("LAST OWNER"));
}

TEST_F(ZorbeListFit, SortsByANumberTheLargestFirstAndTablesWithoutOneLast) {
  makeTable("none");
  Writer few("few");
  Writer many("many");
  fill(few, 1);
  fill(many, 2);
  EXPECT_EQ(names({}), (Words{"few", "many", "none"}));
  EXPECT_EQ(names({"--sort", "records"}), (Words{"many", "few", "none"}));
  EXPECT_EQ(names({"--sort", "records", "--reverse"}), (Words{"none", "few", "many"}));
  EXPECT_EQ(names({"--sort", "writer"}), (Words{"few", "many", "none"}));
  EXPECT_EQ(names({"--sort", "writer", "--reverse"}), (Words{"none", "many", "few"}));
  EXPECT_EQ(zorbe({"list", "--sort", "colour"}).status, 2);
}

TEST_F(ZorbeListFit, ShowsOnlyTheTablesThatAPatternNames) {
  for (const char* name : {"eu/quotes", "us/quotes", "us/trades"}) makeTable(name);
  EXPECT_EQ(names({"us/*"}), (Words{"us/quotes", "us/trades"}));
  EXPECT_EQ(names({"*/trades", "eu/?uotes"}), (Words{"eu/quotes", "us/trades"}));
  EXPECT_EQ(names({"other"}), Words{});
}

TEST_F(ZorbeListFit, ShowsOnlyTheTablesInAState) {
  writeFile(makeTable("bad") + "/corruption-detected", "why\n");
  Writer writer("written");
  makeTable("idle");
  EXPECT_EQ(names({"--state", "alive"}), Words{"written"});
  EXPECT_EQ(names({"--state", "none"}), (Words{"bad", "idle"}));
  EXPECT_EQ(names({"--state", "corrupt,alive"}), (Words{"bad", "written"}));
  EXPECT_EQ(names({"--state", "behind"}), Words{});
  EXPECT_EQ(zorbe({"list", "--state", "tired"}).status, 2);
}

}  // namespace
}  // namespace Zorbe::Test
