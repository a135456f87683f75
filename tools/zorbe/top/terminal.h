// SPDX-License-Identifier: MIT
#pragma once

#include <signal.h>
#include <termios.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "foundation/unique_fd.h"

namespace Zorbe::Tool {

/// What happened while the program waited. Nothing at all: the time is over.
struct TerminalEvents {
  std::string keys;     ///< bytes that were typed
  bool redraw = false;  ///< another size, or the program was continued
  bool ends = false;    ///< a signal to end, or the terminal was closed
};

/// The terminal of standard input and output, for a program that draws on all of it: keys come at
/// once and unseen, on the alternate screen. The destructor leaves the terminal as it was, and so
/// does Ctrl-Z until the program is continued. Signals arrive as events: none interrupts a drawing
/// halfway, and none ends the process before the terminal is restored. One at a time.
class Terminal {
 public:
  /// Throws std::runtime_error when there is no terminal, or one that cannot move its cursor.
  Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  struct Size {
    std::size_t columns;
    std::size_t rows;
  };
  Size size() const;

  /// Writes. A terminal that takes nothing for now does not block: what is left is dropped as
  /// soon as a signal arrives.
  void draw(const std::string& frame);

  TerminalEvents wait(std::chrono::milliseconds limit);

 private:
  void enter();
  void leave() noexcept;
  void suspend();
  void readSignals(TerminalEvents& events);
  void readKeys(TerminalEvents& events) const;

  termios modes_{};      // as they were
  sigset_t formerMask_;  // as it was
  UniqueFd signals_;
  UniqueFd output_;
  bool closed_ = false;
};

}  // namespace Zorbe::Tool
