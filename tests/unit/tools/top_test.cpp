// SPDX-License-Identifier: MIT
#include <chrono>
#include <csignal>
#include <functional>
#include <regex>
#include <sstream>

#include "unit/tools/pseudo_terminal.h"
#include "unit/tools/ready_made.h"

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kUp = "\033[A";
constexpr const char* kDown = "\033[B";

class ZorbeTop : public ReadyMade {
 protected:
  /// Looks by itself once an hour, so that each look is one that the test asks for.
  static Words command() { return {ZORBE_COMMAND, "top", "--interval", "3600"}; }

  static std::unique_ptr<PseudoTerminal> start(unsigned short columns = 120,
                                               unsigned short rows = 24) {
    Words words{"/usr/bin/env", "TERM=xterm", "NO_COLOR=1"};
    for (const std::string& word : command()) words.push_back(word);
    return std::make_unique<PseudoTerminal>(words, columns, rows);
  }

  /// The lines of the next screen, without the escape sequences.
  static Words screen(PseudoTerminal& terminal) {
    static_cast<void>(terminal.await("\033[H"));
    std::string text = terminal.await("\033[J");
    text = std::regex_replace(text, std::regex("\033\\[[0-9;?]*[A-Za-z]"), "");
    Words lines;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
      while (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(line);
    }
    return lines;
  }

  static Words screenAfter(PseudoTerminal& terminal, const std::string& keys) {
    terminal.type(keys);
    return screen(terminal);
  }

  /// Looks again until the screen is as wanted; fails the test when that takes too long.
  static Words screenOnce(PseudoTerminal& terminal,
                          const std::function<bool(const Words&)>& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    Words lines;
    do {
      lines = screenAfter(terminal, " ");
      if (wanted(lines)) return lines;
    } while (std::chrono::steady_clock::now() < deadline && !testing::Test::HasFailure());
    ADD_FAILURE() << "never as wanted: " << testing::PrintToString(lines);
    return lines;
  }

  /// The first word of each line of the table.
  static Words firstWords(const Words& lines) {
    Words words;
    for (size_t i = 2; i + 1 < lines.size() && !lines[i].empty(); ++i) {
      words.push_back(lines[i].substr(0, lines[i].find(' ')));
    }
    return words;
  }

  static std::string column(const Words& lines, const std::string& title, size_t line = 2) {
    const size_t end = lines.at(1).find(title) + title.size();
    const std::string text = lines.at(line).substr(0, end);
    return text.substr(text.rfind(' ') + 1);
  }

  static bool isRaw(const PseudoTerminal& terminal) {
    return (terminal.modes().c_lflag & (ICANON | ECHO)) == 0;
  }

  static void expectRestored(PseudoTerminal& terminal, const termios& before) {
    const termios after = terminal.modes();
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_cc[VMIN], before.c_cc[VMIN]);
    EXPECT_THAT(terminal.rest(), HasSubstr("\033[?25h\033[?1049l"));
  }
};

TEST_F(ZorbeTop, ShowsTheTablesAndEndsWithQ) {
  makeTable("other");
  Writer writer("t");
  fill(writer, 7);
  const auto terminal = start();
  const Words lines = screen(*terminal);
  EXPECT_THAT(lines.at(0), HasSubstr("2 tables, by name"));
  EXPECT_THAT(firstWords(lines), ElementsAre("other", "t"));
  EXPECT_EQ(column(lines, "RECORDS", 3), "7");
  EXPECT_EQ(column(lines, "CHANGES/S", 3), "-") << "nothing to compare with yet";
  EXPECT_EQ(lines.size(), 24u);
  terminal->type("q");
  EXPECT_EQ(terminal->finish(), 0);
}

TEST_F(ZorbeTop, TheRateIsWhatWasPublishedSinceTheLookBefore) {
  Writer writer("t");
  const auto terminal = start();
  screen(*terminal);
  EXPECT_EQ(column(screenAfter(*terminal, " "), "CHANGES/S"), "0.0");
  fill(writer, 1000);
  EXPECT_GT(std::stod(column(screenAfter(*terminal, " "), "CHANGES/S")), 0);
  EXPECT_EQ(column(screenAfter(*terminal, " "), "CHANGES/S"), "0.0");
  terminal->type("q");
  EXPECT_EQ(terminal->finish(), 0);
}

TEST_F(ZorbeTop, SortsByTheNextKeyAndInReverse) {
  Writer few("few");
  Writer many("many");
  fill(few, 1);
  fill(many, 2);
  const auto terminal = start();
  EXPECT_THAT(firstWords(screen(*terminal)), ElementsAre("few", "many"));
  EXPECT_THAT(firstWords(screenAfter(*terminal, "r")), ElementsAre("many", "few"));
  EXPECT_THAT(screenAfter(*terminal, "rs").at(0), HasSubstr("by changes"));
  const Words lines = screenAfter(*terminal, "sss");
  EXPECT_THAT(lines.at(0), HasSubstr("by records"));
  EXPECT_THAT(firstWords(lines), ElementsAre("many", "few"));
  terminal->type("q");
  EXPECT_EQ(terminal->finish(), 0);
}

TEST_F(ZorbeTop, LooksIntoTheTableThatIsSelected) {
  Writer first("a");
  Writer second("b");
  const RawPeer reader = RawPeer::connect(inRoot("b"));
  ASSERT_TRUE(reader.isOpen());
  const auto terminal = start();
  screen(*terminal);
  screenAfter(*terminal, kDown);
  EXPECT_THAT(screenAfter(*terminal, "\n").at(0), HasSubstr("readers of b"));
  const Words lines = screenOnce(*terminal, [](const Words& shown) {
    return shown.at(2).find(" watcher ") != std::string::npos;
  });
  EXPECT_EQ(column(lines, "PID"), std::to_string(getpid()));
  EXPECT_THAT(screenAfter(*terminal, "\033").at(0), HasSubstr("2 tables"));
  screenAfter(*terminal, kUp);
  EXPECT_THAT(screenAfter(*terminal, "\n").at(0), HasSubstr("readers of a"));
  terminal->type("q");
  EXPECT_EQ(terminal->finish(), 0);
}

TEST_F(ZorbeTop, TheSelectionStaysInSight) {
  for (int i = 10; i < 30; ++i) makeTable("t" + std::to_string(i));
  const auto terminal = start(80, 8);
  EXPECT_THAT(firstWords(screen(*terminal)), ElementsAre("t10", "t11", "t12", "t13", "t14"));
  screenAfter(*terminal, "jjjj");
  EXPECT_THAT(firstWords(screenAfter(*terminal, "j")),
              ElementsAre("t11", "t12", "t13", "t14", "t15"));
  EXPECT_THAT(firstWords(screenAfter(*terminal, "\033[6~\033[6~\033[6~\033[6~")).back(), "t29");
  EXPECT_THAT(firstWords(screenAfter(*terminal, "\033[5~\033[5~\033[5~\033[5~")).front(), "t10");
  terminal->type("q");
  EXPECT_EQ(terminal->finish(), 0);
}

TEST_F(ZorbeTop, DrawsAgainInTheNewSize) {
  ChildProcess writer = startWriter("quotes");
  const auto terminal = start(300, 24);
  EXPECT_THAT(screen(*terminal).at(1), HasSubstr("EXECUTABLE"));
  terminal->resize(40, 6);
  const Words lines = screen(*terminal);
  EXPECT_EQ(lines.size(), 6u);
  EXPECT_THAT(lines, testing::Each(testing::SizeIs(testing::Le(40u))));
  terminal->type("q");
  EXPECT_EQ(terminal->finish(), 0);
}

TEST_F(ZorbeTop, LeavesTheTerminalAsItWasHoweverItEnds) {
  for (const char* keys : {"q", "\003", "\034"}) {
    const auto terminal = start();
    const termios before = terminal->firstModes();
    screen(*terminal);
    EXPECT_TRUE(isRaw(*terminal));
    terminal->type(keys);
    EXPECT_EQ(terminal->finish(), 0);
    expectRestored(*terminal, before);
  }
  for (const int signal : {SIGTERM, SIGHUP}) {
    const auto terminal = start();
    const termios before = terminal->firstModes();
    screen(*terminal);
    EXPECT_EQ(kill(terminal->pid(), signal), 0);
    EXPECT_EQ(terminal->finish(), 0);
    expectRestored(*terminal, before);
  }
}

TEST_F(ZorbeTop, EndsWhenItsTerminalIsClosed) {
  const auto terminal = start();
  screen(*terminal);
  terminal->hangUp();
  EXPECT_EQ(terminal->finish(), 0);
}

TEST_F(ZorbeTop, EndsAtASignalWhileItsTerminalTakesNothing) {
  const auto terminal = start();
  const termios before = terminal->firstModes();
  screen(*terminal);
  terminal->stopOutput();
  terminal->resize(100, 20);
  EXPECT_EQ(kill(terminal->pid(), SIGTERM), 0);
  EXPECT_EQ(terminal->finish(), 0);
  EXPECT_EQ(terminal->modes().c_lflag, before.c_lflag);
}

TEST_F(ZorbeTop, RestoresTheTerminalWhileItIsSuspended) {
  PseudoTerminal terminal({"/usr/bin/env", "TERM=xterm", "PS1=shell: ", "/bin/bash", "--norc",
                           "--noprofile", "--noediting", "-i"},
                          120);
  terminal.type("echo be''gun; " + std::string(ZORBE_COMMAND) + " top --interval 3600\n");
  terminal.await("begun");
  screen(terminal);
  EXPECT_TRUE(isRaw(terminal));
  terminal.type("\032");
  terminal.await("\033[?1049l");
  terminal.await("Stopped");
  terminal.await("shell: ");
  terminal.type("stty -a | grep -o '[-]*icanon'; fg\n");
  EXPECT_THAT(terminal.await("\033[?1049h"), HasSubstr("\nicanon"));
  screen(terminal);
  EXPECT_TRUE(isRaw(terminal));
  terminal.type("q");
  terminal.await("\033[?1049l");
  terminal.type("echo en''ded; exit\n");
  terminal.await("ended");
  EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ZorbeTop, ABaseThatCannotBeReadIsOnTheScreen) {
  writeFile(inRoot("file"), "");
  Words words{"/usr/bin/env", "TERM=xterm", ZORBE_COMMAND, "top", "--root", inRoot("file")};
  PseudoTerminal terminal(words, 120);
  EXPECT_THAT(screen(terminal).at(0), HasSubstr(inRoot("file") + ": Not a directory"));
  terminal.type("q");
  EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ZorbeTop, WithoutATerminalItSaysWhatToUse) {
  const Outcome run = zorbe({"top"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("top needs a terminal; see list and metrics for programs"));
  PseudoTerminal dumb({"/usr/bin/env", "TERM=dumb", ZORBE_COMMAND, "top"}, 80);
  EXPECT_EQ(dumb.finish(), 2);
  EXPECT_THAT(dumb.rest(), HasSubstr("see TERM"));
}

}  // namespace
}  // namespace Zorbe::Test
