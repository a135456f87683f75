// SPDX-License-Identifier: MIT
#include "output/columns.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "output/text.h"

namespace Zorbe::Tool {

namespace {

const char* sequence(Tone tone) {
  switch (tone) {
    case Tone::kHeading:
      return "\033[1m";
    case Tone::kGood:
      return "\033[32m";
    case Tone::kWarning:
      return "\033[33m";
    case Tone::kBad:
      return "\033[31m";
    case Tone::kPlain:
      break;
  }
  return "";
}

bool isSet(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

}  // namespace

bool wantsColour() {
  if (isatty(STDOUT_FILENO) == 0 || isSet("NO_COLOR")) return false;
  const char* const terminal = std::getenv("TERM");
  return terminal != nullptr && std::string(terminal) != "dumb";
}

std::string painted(const std::string& text, Tone tone, bool coloured) {
  if (!coloured || tone == Tone::kPlain) return text;
  return sequence(tone) + text + "\033[0m";
}

std::vector<std::size_t> Columns::widths() const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], displayWidth(row[i].text));
    }
  }
  return widths;
}

void Columns::print(std::ostream& out, bool coloured) const {
  const auto widths = this->widths();
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const Cell& cell = row[i];
      const std::string space(widths[i] - displayWidth(cell.text), ' ');
      const bool last = i + 1 == row.size();
      if (cell.number) out << space;
      out << painted(cell.text, cell.tone, coloured);
      if (!last) out << (cell.number ? "" : space) << "  ";
    }
    out << '\n';
  }
}

}  // namespace Zorbe::Tool
