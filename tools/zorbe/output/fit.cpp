// SPDX-License-Identifier: MIT
#include "output/fit.h"

#include <sys/ioctl.h>

#include <algorithm>

#include "output/text.h"
#include "output/unicode.h"

namespace Zorbe::Tool {

namespace {

constexpr std::size_t kGap = 2;  // between two columns

std::size_t widthOf(const Rows& rows, std::size_t column) {
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, displayWidth(row[column].text));
  return width;
}

std::size_t widthOf(const Rows& rows) {
  if (rows.empty()) return 0;
  std::size_t width = 0;
  for (std::size_t i = 0; i < rows.front().size(); ++i) width += widthOf(rows, i) + kGap;
  return width - kGap;
}

void removeColumn(Rows& rows, std::size_t column) {
  for (auto& row : rows) row.erase(row.begin() + static_cast<std::ptrdiff_t>(column));
}

}  // namespace

std::optional<std::size_t> terminalWidth(int fd) {
  winsize size{};
  if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
  return size.ws_col;
}

std::string shortened(const std::string& text, std::size_t width) {
  constexpr std::size_t kDots = 3;
  if (displayWidth(text) <= width) return text;
  std::size_t room = width > kDots ? width - kDots : width;
  std::size_t end = 0;
  while (end < text.size()) {  // by whole characters
    const std::size_t length = std::max<std::size_t>(sequenceAt(text, end), 1);
    const std::size_t columns = displayWidth(text.substr(end, length));
    if (columns > room) break;
    room -= columns;
    end += length;
  }
  return text.substr(0, end) + (width > kDots ? "..." : "");
}

void fit(Rows& rows, std::vector<std::size_t> expendable, std::size_t width) {
  while (!expendable.empty() && widthOf(rows) > width) {
    const std::size_t column = expendable.front();
    expendable.erase(expendable.begin());
    removeColumn(rows, column);
    for (std::size_t& later : expendable) later -= later > column ? 1 : 0;
  }
  const std::size_t all = widthOf(rows);
  if (all <= width) return;
  const std::size_t first = widthOf(rows, 0);
  const std::size_t room = first > all - width ? first - (all - width) : 1;
  for (auto& row : rows) row[0].text = shortened(row[0].text, room);
}

}  // namespace Zorbe::Tool
