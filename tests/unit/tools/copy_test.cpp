// SPDX-License-Identifier: MIT
//
// One table copied to another by two commands and a pipe, as docs/table.md shows.
#include <sys/stat.h>

#include <csignal>
#include <map>

#include "support/random.h"
#include "unit/tools/records_fixture.h"

namespace Zorbe::Test {
namespace {

class ZorbeCopy : public Records {
 protected:
  ZorbeCopy() { EXPECT_EQ(::mkfifo(inRoot("between").c_str(), 0600), 0); }

  // The two sides of the pipe. Each opens it when the other one does.
  ChildProcess startFeeding() {
    return startWith(inRoot("between"), feedOf("copy", {"--format", "json"}));
  }
  ChildProcess startTailing() const {
    const std::string command =
        "exec " + std::string(ZORBE_COMMAND) + " tail t --json --wait >" + inRoot("between");
    return ChildProcess({"/bin/sh", "-c", command});
  }

  static ChildProcess startWriting(const LiveInput& input) {
    return startWith(input.path(), feedOf("t", {"--format", "json"}));
  }

  // Changes a few of 50 keys.
  void change(const LiveInput& input) {
    std::string lines;
    for (int i = 0; i < 30; ++i) {
      const std::string key = std::to_string(random_.below(50));
      const bool isErased = random_.percent(40);
      const std::string value = std::to_string(random_.below(1000));
      lines +=
          "{\"k\":\"" + key + "\"," + (isErased ? "\"erased\":true}\n" : "\"v\":" + value + "}\n");
      isErased ? static_cast<void>(wanted_.erase(key)) : static_cast<void>(wanted_[key] = value);
    }
    input.write(lines);
  }

  void awaitTable() const { awaitRows("t", wantedRows()); }
  void awaitCopy() const {
    awaitTable();
    awaitRows("copy", wantedRows());
  }

 private:
  Words wantedRows() const {
    Words rows;
    for (const auto& [key, value] : wanted_) rows.push_back(key + "," + value);
    return rows;
  }

  Random random_{6};
  std::map<std::string, std::string> wanted_;
};

TEST_F(ZorbeCopy, FollowsATableWhileItChanges) {
  LiveInput input(inRoot("pipe"));
  feed("copy", "old,1\n");
  ChildProcess writer = startWriting(input);
  ChildProcess feeding = startFeeding();
  ChildProcess tailing = startTailing();
  for (int round = 0; round < 10; ++round) change(input);
  awaitCopy();
  change(input);
  awaitCopy();
  tailing.signal(SIGTERM);
  EXPECT_EQ(tailing.finish(), 0);
  EXPECT_EQ(feeding.finish(), 0) << "no row was bad";
}

// The log of this table holds 512 changes.
TEST_F(ZorbeCopy, CatchesUpWhenItWasOverrun) {
  LiveInput input(inRoot("pipe"));
  ChildProcess writer = startWriting(input);
  ChildProcess feeding = startFeeding();
  ChildProcess tailing = startTailing();
  change(input);
  awaitCopy();
  tailing.stop();
  for (int round = 0; round < 60; ++round) change(input);
  awaitTable();
  tailing.signal(SIGCONT);
  awaitCopy();
}

TEST_F(ZorbeCopy, SurvivesAWriterThatIsKilled) {
  LiveInput first(inRoot("first"));
  LiveInput second(inRoot("second"));
  ChildProcess writer = startWriting(first);
  ChildProcess feeding = startFeeding();
  ChildProcess tailing = startTailing();
  change(first);
  awaitCopy();
  writer.kill();
  ChildProcess next = startWriting(second);
  change(second);
  awaitCopy();
}

TEST_F(ZorbeCopy, ASideThatIsKilledEndsTheOtherAndTheNextPairGoesOn) {
  LiveInput input(inRoot("pipe"));
  ChildProcess writer = startWriting(input);
  {
    ChildProcess feeding = startFeeding();
    ChildProcess tailing = startTailing();
    change(input);
    awaitCopy();
    feeding.kill();
    EXPECT_EQ(tailing.finish(), 0) << "its output is closed, and nothing changes";
  }
  change(input);
  {
    ChildProcess feeding = startFeeding();
    ChildProcess tailing = startTailing();
    awaitCopy();
    tailing.kill();
    EXPECT_EQ(feeding.finish(), 0) << "its input has ended";
  }
  change(input);
  ChildProcess feeding = startFeeding();
  ChildProcess tailing = startTailing();
  awaitCopy();
}

}  // namespace
}  // namespace Zorbe::Test
