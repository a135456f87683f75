// SPDX-License-Identifier: MIT
//
// One line at the end of what standard error shows, while that is a terminal; otherwise nothing.
#pragma once

#include <brask/linux/stream_debug_handler.h>

#include <functional>
#include <optional>
#include <string>

#include "core/timer.h"
#include "progress/progress.h"

namespace Zorbe::Relay {

class StatusLine {
 public:
  StatusLine();
  ~StatusLine() { clear(); }
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  bool isTerminal() const { return isTerminal_; }

  /// In place of what the line shows. The text is printable.
  void show(const std::string& text);

  /// Before anything else is written.
  void clear();

 private:
  bool isTerminal_;
  bool isShown_ = false;
};

/// Messages on standard error, above the line.
class LogAboveLine : public Brask::Linux::StreamDebugHandler {
 public:
  LogAboveLine(StatusLine& line, int maxLevel);

  void emit(std::ostringstream& message, int level) override;

 private:
  StatusLine& line_;
};

/// Shows the progress of a table's transfers while the current loop turns.
class ProgressDisplay {
 public:
  using Ask = std::function<std::optional<Progress>()>;

  /// `ask` returns nothing while there is no transfer.
  ProgressDisplay(StatusLine& line, const std::string& table, Ask ask);

  void update();

 private:
  StatusLine& line_;
  std::string table_;
  Ask ask_;
  Table::Timer<ProgressDisplay> timer_{*this, &ProgressDisplay::update};
};

/// "prices: sending, 45 %, 4500 records".
std::string print(const std::string& table, const Progress& progress);

}  // namespace Zorbe::Relay
