// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {

/// Standard input of a command that the test writes while the command runs.
class LiveInput {
 public:
  /// Makes a FIFO. Neither end waits for the other.
  explicit LiveInput(const std::string& path);

  const std::string& path() const { return path_; }
  void write(const std::string& text) const;

  /// The command, which has opened it, reads its end.
  void end() { fd_ = Descriptor(); }

 private:
  std::string path_;
  Descriptor fd_;
};

/// Tables that the command writes and reads.
class Records : public Command {
 protected:
  /// Runs the command with this text on its standard input.
  Outcome zorbeWith(const std::string& input, const Words& arguments);

  /// Starts it with a file or a FIFO there.
  static ChildProcess startWith(const std::string& input, Words arguments);

  /// The rows of `zorbe dump --csv`, without the header.
  static Words rowsOf(const std::string& table);

  /// Asks again until the table has these rows; fails the test when that takes too long.
  static void awaitRows(const std::string& table, const Words& wanted);

  /// The arguments of a feed of table `table` with key k:S8 and field v:i4, and `more`.
  static Words feedOf(const std::string& table, const Words& more = {});

  /// Feeds rows of CSV to such a table.
  void feed(const std::string& table, const std::string& rows);
};

}  // namespace Zorbe::Test
