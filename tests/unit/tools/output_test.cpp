// SPDX-License-Identifier: MIT
//
// What names of any bytes look like on a terminal, in JSON and in metrics.
#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class ZorbeOutput : public Command {
 protected:
  static Outcome inLocale(const std::string& locale, const Words& arguments) {
    Words words{"/usr/bin/env", "LC_ALL=" + locale, ZORBE_COMMAND};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return runProgram(words);
  }

  static Words names(const Outcome& run) {
    Words names;
    const Json output = run.json();
    for (const Json& table : output["tables"]) names.push_back(table["name"]);
    return names;
  }

  /// Sequences that control, reorder, hide or separate text.
  static inline const Words kHarmful{"\033[2J",         "\x7f",
                                     "\xc2\x9b",           // CSI as one character
                                     "\xe2\x80\xae",       // right-to-left override
                                     "\xe2\x81\xa6",       // isolate
                                     "\xe2\x80\x8b",       // zero-width space
                                     "\xe2\x80\xa8",       // line separator
                                     "\xf3\xa0\x81\x81"};  // a tag
};

TEST_F(ZorbeOutput, HarmfulCharactersReachNoTerminal) {
  for (const std::string& sequence : kHarmful) makeTable("a" + sequence + "b");
  const Words commands[] = {
      {"list"}, {"list", "--json"}, {"metrics"}, {"doctor"}, {"doctor", "--json"}};
  for (const Words& command : commands) {
    const Outcome run = inLocale("C.UTF-8", command);
    for (const std::string& sequence : kHarmful) {
      EXPECT_THAT(run.out, Not(HasSubstr(sequence))) << testing::PrintToString(command);
    }
  }
}

TEST_F(ZorbeOutput, JsonHasTheVeryCharacters) {
  Words wanted;
  for (const std::string& sequence : kHarmful) wanted.push_back("a" + sequence + "b");
  for (const std::string& name : wanted) makeTable(name);
  EXPECT_THAT(names(zorbe({"list", "--json"})), testing::UnorderedElementsAreArray(wanted));
}

TEST_F(ZorbeOutput, ABackslashIsNotTheEscapeOfAByte) {
  makeTable("x\xff");
  makeTable("x\\xff");
  EXPECT_EQ(names(zorbe({"list", "--json"})), (Words{"x\\\\xff", "x\\xff"}));
  const Words metrics = zorbe({"metrics"}).lines();
  EXPECT_THAT(metrics, Contains("zorbe_writer_up{table=\"x\\\\xff\"} 0"));
  EXPECT_THAT(metrics, Contains("zorbe_writer_up{table=\"x\\\\\\\\xff\"} 0"));
}

TEST_F(ZorbeOutput, TextBeyondAsciiIsShownWhereTheLocaleHasIt) {
  const std::string name =
      "Gr\xc3\xb6\xc3\x9f"
      "e \xe6\x97\xa5";
  makeTable(name);
  EXPECT_THAT(inLocale("C.UTF-8", {"list"}).out, HasSubstr("\n\"" + name + "\"  none"));
  EXPECT_THAT(inLocale("C", {"list"}).out, HasSubstr("\n\"Gr\\xc3\\xb6\\xc3\\x9fe \\xe6"));
  EXPECT_THAT(inLocale("no-such-locale", {"list"}).out, HasSubstr("\n\"Gr\\xc3\\xb6"));
}

TEST_F(ZorbeOutput, ColumnsAlignByWhatATerminalShows) {
  makeTable("\xe6\x97\xa5\xe6\x9c\xac");  // two characters of two columns each
  makeTable("e\xcc\x81t\xc3\xa9");        // a combining accent takes no column
  const Outcome run = inLocale("C.UTF-8", {"list"});
  EXPECT_THAT(run.out, HasSubstr("\xe6\x97\xa5\xe6\x9c\xac   none"));
  EXPECT_THAT(run.out, HasSubstr("e\xcc\x81t\xc3\xa9    none"));
}

TEST_F(ZorbeOutput, BytesThatAreNotUtf8AreEscapedInAUtf8Locale) {
  makeTable("x\xc3(\xff\xc0\x80");
  EXPECT_THAT(inLocale("C.UTF-8", {"list"}).out, HasSubstr("\nx\\xc3(\\xff\\xc0\\x80 "));
}

}  // namespace
}  // namespace Zorbe::Test
