// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Zorbe::Tool {

enum class Tone { plain, heading, good, warning, bad };

/// True when standard output is a terminal that shows colours, and NO_COLOR is not set to
/// something (see no-color.org).
bool wantsColour();

/// `text` between the terminal's sequences for `tone`, or as it is.
std::string painted(const std::string& text, Tone tone, bool coloured);

struct Cell {
  std::string text;
  Tone tone = Tone::plain;
  bool number = false;  ///< aligned to the right
};

/// Rows whose cells stand below each other. The text of cells is printable ASCII.
class Columns {
 public:
  void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
  void print(std::ostream& out, bool coloured) const;

 private:
  std::vector<std::size_t> widths() const;

  std::vector<std::vector<Cell>> rows_;
};

}  // namespace Zorbe::Tool
