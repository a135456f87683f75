// SPDX-License-Identifier: MIT
//
// The figures of one run, as lines of text between the programs that measure and the one that
// reports: a row per line, its fields separated by tabs.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "harness/statistics.h"

namespace Bench {

struct Row {
  std::string group;    // the table that the row belongs to
  std::string subject;  // what was measured
  std::string load;     // under which condition, a number or a word
  std::string unit;
  Spread value;
  std::string baseline;  // what the ratio is to; empty without a ratio
  Spread ratio;
  std::string goal;  // for the ratio or the value; empty without a goal
};

std::ostream& operator<<(std::ostream& out, const Row& row);

/// Reads rows up to the end. Throws std::runtime_error for a line that is none.
std::vector<Row> readRows(std::istream& in);

/// Where a program's results go: the file named on its command line after --results, else
/// standard output.
class Results {
 public:
  Results(int argc, char** argv);

  /// Whether --quick was given: fewer and shorter blocks.
  bool quick() const { return quick_; }

  /// One of two numbers.
  int size(int full, int quickly) const { return quick_ ? quickly : full; }

  void add(const Row& row);

  /// Adds every outcome of a comparison: its medians, with the ratio to the first one.
  void addMedians(const std::string& group, const std::string& load, const std::string& unit,
                  const std::vector<Outcome>& outcomes, const std::string& goal = "");
  void addP99s(const std::string& group, const std::string& load, const std::string& unit,
               const std::vector<Outcome>& outcomes, const std::string& goal = "");

  /// Reports on standard error that something was left out, and adds a row about it.
  void skip(const std::string& group, const std::string& subject, const std::string& why);

 private:
  bool quick_ = false;
  std::string path_;
};

}  // namespace Bench
