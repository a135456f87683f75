// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/fixture.h"
#include "support/outcome.h"
#include "support/raw_peer.h"

namespace Zorbe::Test {

namespace fs = std::filesystem;
/// The built command, with real writers and readers around it.
class Command : public ZorbeTest {
 protected:
  /// Runs the command to its end.
  static Outcome zorbe(const Words& arguments);

  /// The same as a user who is not root: "nobody" when root runs the test.
  Outcome zorbeAsOrdinaryUser(const Words& arguments);

  /// The same with the system calls of these kinds in the file `trace`.
  static Outcome traced(const std::string& calls, const std::string& trace, const Words& arguments);

  /// Starts the command.
  static ChildProcess start(Words arguments);

  /// Begins when the writer's own looks have ended; `others` may be connected.
  static ChildProcess startWriter(const std::string& table, int others = 0);
  static ChildProcess startReader(const std::string& table);

  /// The entry of the table in `zorbe list --json`; null when it is not listed.
  static Json listed(const std::string& table);

  /// Asks again until the table is as wanted; fails the test when that takes too long.
  static Json listedOnce(const std::string& table, const std::function<bool(const Json&)>& wanted);

  /// A root directory with one file of a table in it.
  std::string makeTable(const std::string& name);
  void writeFile(const std::string& path, const std::string& content, unsigned mode = 0666);

  /// This test becomes the writer of the table, listening or not.
  Descriptor lock(const std::string& table);
  Descriptor lockAndListen(const std::string& table);

  /// Connects until the writer's queue takes no more.
  std::vector<RawPeer> fillQueue(const std::string& table);

  static bool isRoot();
};

}  // namespace Zorbe::Test
