// SPDX-License-Identifier: MIT
#pragma once

#include "support/descriptor.h"
#include "support/noncopyable.h"

#include <sys/types.h>
#include <termios.h>

#include <string>
#include <vector>

namespace Zorbe::Test {

/// A program on a terminal of its own, whose keys the test types and whose screen it reads.
class PseudoTerminal : private NonCopyable {
 public:
  /// Runs a program, whose path comes first, as the leader of the terminal's session.
  PseudoTerminal(std::vector<std::string> arguments, unsigned short columns,
                 unsigned short rows = 24);

  /// Kills the program if it still runs.
  ~PseudoTerminal();

  void type(const std::string& keys) const;

  /// Waits until the program has written `text`, and returns what came before, from the end of
  /// the text of the last call on. Fails the test when that takes too long.
  std::string await(const std::string& text);

  /// Sets the size, of which the program is notified.
  void resize(unsigned short columns, unsigned short rows) const;

  /// The terminal's modes. They are the same at both ends.
  termios modes() const;

  /// The modes from before the program was started, which changes them at once.
  const termios& firstModes() const { return firstModes_; }

  /// From now on the terminal takes nothing that the program writes.
  void stopOutput() const;

  /// Ends the terminal, as when its window is closed.
  void hangUp() { master_.close(); }

  /// Waits until the program ends by itself. Returns its exit status, or minus the signal that
  /// ended it; fails the test when that takes too long.
  int finish();

  /// What the program has written since the text that was awaited last.
  const std::string& rest() const { return output_; }

  pid_t pid() const { return pid_; }

 private:
  bool read(int milliseconds);

  Descriptor master_;
  termios firstModes_;
  pid_t pid_ = -1;
  std::string output_;
};

}  // namespace Zorbe::Test
