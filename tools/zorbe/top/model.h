// SPDX-License-Identifier: MIT
//
// What top shows: looks at all tables from time to time, and at the readers of one of them, and
// keeps the look before for the rates. Knows nothing of the terminal.
#pragma once

#include <brask/platform.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "commands/items.h"
#include "host/readers.h"

namespace Zorbe::Tool {

class TopModel {
 public:
  using Clock = std::chrono::steady_clock;

  explicit TopModel(Brask::Platform::DebugHandler& handler) : handler_(handler) {}

  /// Looks again. What cannot be read is in problem().
  void sample(Clock::time_point now = Clock::now());

  /// Why the last look failed; empty: it did not.
  const std::string& problem() const { return problem_; }

  const std::string& basePath() const { return survey_.base.path; }
  const std::vector<Item>& items() const { return items_; }

  /// Changes published in a second; none at the first look at a table, or after it was replaced.
  std::optional<double> rate(const Item& item) const;

  /// The table whose readers are looked at, too; none: of no table.
  void lookInto(const std::optional<std::string>& name);

  const ReaderList& readers() const { return readers_; }

  /// Changes that a reader has reported in a second; none when its process has several connections.
  std::optional<double> rate(const ReaderRow& row) const;

 private:
  struct Counter {
    uint64_t incarnation = 0;
    uint64_t value = 0;
  };
  void read();
  void readReaders();
  std::optional<double> perSecond(uint64_t before, uint64_t now) const;

  Brask::Platform::DebugHandler& handler_;
  std::optional<std::string> inside_;
  Survey survey_;
  std::vector<Item> items_;
  ReaderList readers_;
  std::string problem_;
  Clock::time_point time_;
  double seconds_ = 0;  // between the last two looks
  std::map<std::string, Counter> published_, publishedBefore_;
  std::map<pid_t, uint64_t> reported_, reportedBefore_;
};

}  // namespace Zorbe::Tool
