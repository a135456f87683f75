// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Zorbe::Tool {

enum class Tone { kPlain, kHeading, kGood, kWarning, kBad };

/// True when standard output is a terminal that shows colours, and NO_COLOR is unset or empty
/// (see no-color.org).
bool wantsColour();

/// `text` between the escape sequences of `tone`, or unchanged.
std::string painted(const std::string& text, Tone tone, bool coloured);

struct Cell {
  std::string text;
  Tone tone = Tone::kPlain;
  bool number = false;  ///< aligned to the right
};

/// Rows with aligned cells. The text of cells is printable: see printable().
class Columns {
 public:
  void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
  void print(std::ostream& out, bool coloured) const;

 private:
  std::vector<std::size_t> widths() const;

  std::vector<std::vector<Cell>> rows_;
};

}  // namespace Zorbe::Tool
