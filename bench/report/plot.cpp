// SPDX-License-Identifier: MIT
#include "report/plot.h"

#include <algorithm>
#include <sstream>

#include "report/format.h"

namespace Bench {

namespace {

constexpr double kLabels = 250;  // width of the column of names, in pixels
constexpr double kBars = 380;
constexpr double kValues = 210;
constexpr double kStep = 22;
constexpr double kTop = 40;

std::string escaped(const std::string& text) {
  std::string result;
  for (const char character : text) {
    if (character == '<') {
      result += "&lt;";
    } else if (character == '&') {
      result += "&amp;";
    } else {
      result += character;
    }
  }
  return result;
}

void writeText(std::ostream& out, double x, double y, const std::string& attributes,
               const std::string& text) {
  out << "<text x=\"" << x << "\" y=\"" << y << "\" " << attributes << ">" << escaped(text)
      << "</text>\n";
}

void writeBar(std::ostream& out, const Row& row, double y, double longest) {
  const auto at = [&](double value) { return kLabels + kBars * value / longest; };
  const bool ours = row.subject == "libZorbe" || row.subject == "bundled loop" ||
                    row.subject == "ipChecksumRange";
  writeText(out, kLabels - 8, y + 14, "text-anchor=\"end\"", row.subject + ", " + row.load);
  out << "<rect x=\"" << kLabels << "\" y=\"" << y + 3 << "\" width=\""
      << at(row.value.median) - kLabels << "\" height=\"" << kStep - 8 << "\" fill=\""
      << (ours ? "#2a6f97" : "#a9b4bd") << "\"/>\n<path d=\"M" << at(row.value.low) << ' '
      << y + kStep / 2 - 1 << "H" << std::min(at(row.value.high), kLabels + kBars)
      << "\" stroke=\"#333\" stroke-width=\"1.5\"/>\n";
  writeText(out, kLabels + kBars + 10, y + 14, "fill=\"#333\"", valueText(row));
}

}  // namespace

std::string barPlot(const std::string& title, const std::vector<Row>& rows) {
  double longest = 1e-9;
  for (const Row& row : rows) longest = std::max(longest, row.value.median * 1.05);
  const double height = kTop + kStep * static_cast<double>(rows.size()) + 10;
  std::ostringstream out;
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kLabels + kBars + kValues
      << "\" height=\"" << height << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
  writeText(out, 12, 22, "font-size=\"14\" font-weight=\"bold\"", title);
  double y = kTop;
  for (const Row& row : rows) {
    writeBar(out, row, y, longest);
    y += kStep;
  }
  out << "</svg>\n";
  return out.str();
}

}  // namespace Bench
