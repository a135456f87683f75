// SPDX-License-Identifier: MIT
#include "top/screen.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "commands/header_facts.h"
#include "commands/reader_rows.h"
#include "output/text.h"
#include "output/time.h"

namespace Zorbe::Tool {

namespace {

constexpr const char* kSortKeys[] = {"name",    "changes",     "lag", "behind",
                                     "records", "connections", "pid"};
constexpr std::size_t kHeadLines = 2;  // the title and the heading
constexpr std::size_t kFootLines = 1;

std::string rateText(const std::optional<double>& rate) {
  if (!rate) return "-";
  char text[48];
  static_cast<void>(std::snprintf(text, sizeof text, "%.*f", *rate < 100 ? 1 : 0, *rate));
  return text;
}

Cell rateCell(const std::optional<double>& rate) {
  return {rateText(rate), Tone::kPlain, true};
}

std::string age(const std::optional<TableHeader>& header) {
  if (!header || header->publishedAt <= 0) return "-";
  const auto passed = static_cast<double>(realTimeNow()) - static_cast<double>(header->publishedAt);
  return duration(std::max(passed / 1e9, 0.0));
}

std::vector<std::string> linesOf(Rows rows, bool coloured) {
  Columns columns;
  for (auto& row : rows) columns.add(std::move(row));
  std::ostringstream text;
  columns.print(text, coloured);
  std::vector<std::string> lines;
  std::istringstream all(text.str());
  for (std::string line; std::getline(all, line);) lines.push_back(line);
  return lines;
}

// A key is a byte, or an escape sequence: "\033[" and bytes up to a letter or '~'.
std::size_t lengthOfKey(const std::string& bytes, std::size_t at) {
  if (bytes.compare(at, 2, "\033[") != 0 && bytes.compare(at, 2, "\033O") != 0) return 1;
  std::size_t end = at + 2;
  while (end < bytes.size() && bytes[end] < '@') ++end;
  return std::min(end + 1, bytes.size()) - at;
}

std::string inverse(const std::string& text) {
  return "\033[7m" + text + "\033[0m";
}

}  // namespace

TopScreen::Wish TopScreen::handleKeys(const std::string& bytes) {
  Wish wish = Wish::kNothing;
  for (std::size_t at = 0; at < bytes.size() && wish != Wish::kQuit;) {
    const std::size_t length = lengthOfKey(bytes, at);
    const Wish next = handleKey(bytes.substr(at, length));
    if (next != Wish::kNothing) wish = next;
    at += length;
  }
  return wish;
}

TopScreen::Wish TopScreen::handleKey(const std::string& key) {
  if (key == "q") return Wish::kQuit;
  if (key == " ") return Wish::kSample;
  if (key == "s") sortByNext();
  if (key == "r") reverse_ = !reverse_;
  if (key == "k" || key == "\033[A" || key == "\033OA") move(-1);
  if (key == "j" || key == "\033[B" || key == "\033OB") move(1);
  if (key == "\033[5~") move(-static_cast<long>(pageLines_));
  if (key == "\033[6~") move(static_cast<long>(pageLines_));
  const bool opens = key == "\n" || key == "\r";
  const bool closes = key == "\033" || key == "\177" || key == "\b";
  if (opens && !inside_ && !model_.items().empty()) inside_ = selected_;
  if (closes) inside_.reset();
  if (opens || closes) model_.lookInto(inside_);
  return Wish::kNothing;
}

void TopScreen::sortByNext() {
  key_ = (key_ + 1) % std::size(kSortKeys);
}

// Tables that are equal stay in the order of their names.
std::vector<const Item*> TopScreen::sorted() const {
  const std::string key = kSortKeys[key_];
  std::vector<const Item*> items;
  for (const Item& item : model_.items()) items.push_back(&item);
  std::stable_sort(items.begin(), items.end(), [&](const Item* a, const Item* b) {
    if (key != "changes") return isBefore(*a, *b, key);
    return model_.rate(*a).value_or(-1) > model_.rate(*b).value_or(-1);
  });
  if (reverse_) std::reverse(items.begin(), items.end());
  return items;
}

void TopScreen::move(long lines) {
  const auto items = sorted();
  if (inside_ || items.empty()) return;
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&](const Item* item) { return item->table->name == selected_; });
  const long line = found == items.end() ? 0 : found - items.begin();
  const long last = static_cast<long>(items.size()) - 1;
  selected_ = items[static_cast<std::size_t>(std::clamp(line + lines, 0L, last))]->table->name;
}

std::string TopScreen::title(std::size_t tables) const {
  if (!model_.problem().empty()) return "zorbe top: " + printable(model_.problem());
  const std::string place = inside_ ? "readers of " + word(*inside_) : printable(model_.basePath());
  return "zorbe top  " + place + "  " + counted(tables, "table") + ", by " + kSortKeys[key_] +
         (reverse_ ? " reversed" : "");
}

Rows TopScreen::tableRows(const std::vector<const Item*>& items) const {
  constexpr ItemField kBefore[] = {kName, kWriter, kPid, kConnections, kRecords};
  constexpr ItemField kAfter[] = {kBehind, kLag};
  const auto& columns = itemColumns();
  Rows rows(1);
  const auto head = [&](const char* text, bool number) {
    rows[0].push_back({text, Tone::kHeading, number});
  };
  for (const ItemField field : kBefore) head(columns[field].title, columns[field].number);
  head("CHANGES/S", true);
  for (const ItemField field : kAfter) head(columns[field].title, columns[field].number);
  head("PUBLISHED", true);
  head(columns[kExecutable].title, false);
  for (const Item* item : items) {
    std::vector<Cell> row;
    for (const ItemField field : kBefore) row.push_back(columns[field].cell(*item));
    row.push_back(rateCell(model_.rate(*item)));
    for (const ItemField field : kAfter) row.push_back(columns[field].cell(*item));
    row.push_back({age(item->reading.header), Tone::kPlain, true});
    row.push_back(columns[kExecutable].cell(*item));
    rows.push_back(std::move(row));
  }
  return rows;
}

// Only the tables that have room, around the one that is selected.
std::vector<std::string> TopScreen::linesOfTables(Terminal::Size size) {
  const std::vector<std::size_t> expendable{9, 2, 8, 3, 4, 7, 6, 1};
  auto items = sorted();
  pageLines_ =
      std::max<std::size_t>(size.rows, kHeadLines + kFootLines + 1) - kHeadLines - kFootLines;
  const auto found = std::find_if(items.begin(), items.end(),
                                  [&](const Item* item) { return item->table->name == selected_; });
  if (found == items.end()) selected_ = items.empty() ? "" : items.front()->table->name;
  const auto line = static_cast<std::size_t>(found == items.end() ? 0 : found - items.begin());
  if (line < offset_) offset_ = line;
  if (line >= offset_ + pageLines_) offset_ = line - pageLines_ + 1;
  Rows rows = tableRows(items);
  fit(rows, expendable, size.columns);
  if (!items.empty()) {
    for (Cell& cell : rows[line + 1]) cell.tone = Tone::kPlain;
  }
  std::vector<std::string> lines = linesOf(std::move(rows), coloured_);
  if (!items.empty()) lines[line + 1] = inverse(lines[line + 1]);
  lines.erase(lines.begin() + 1, lines.begin() + 1 + static_cast<std::ptrdiff_t>(offset_));
  return lines;
}

Rows TopScreen::readerRowsWithRates() const {
  constexpr std::ptrdiff_t kPlace = 4;  // after what was reported
  Rows rows = readerRows(model_.readers());
  rows[0].insert(rows[0].begin() + kPlace, {"CHANGES/S", Tone::kHeading, true});
  for (std::size_t i = 1; i < rows.size(); ++i) {
    rows[i].insert(rows[i].begin() + kPlace, rateCell(model_.rate(model_.readers().rows[i - 1])));
  }
  return rows;
}

std::vector<std::string> TopScreen::linesOfReaders(Terminal::Size size) const {
  const std::vector<std::size_t> expendable{8, 1, 3, 6, 4, 7};
  Rows rows = readerRowsWithRates();
  fit(rows, expendable, size.columns);
  return linesOf(std::move(rows), coloured_);
}

std::string TopScreen::frame(Terminal::Size size) {
  std::vector<std::string> lines = inside_ ? linesOfReaders(size) : linesOfTables(size);
  lines.insert(lines.begin(), shortened(title(model_.items().size()), size.columns));
  const std::size_t room = std::max<std::size_t>(size.rows, 2) - kFootLines;
  lines.resize(room);
  const char* const keys = inside_ ? "q quit  Esc tables  Space look now"
                                   : "q quit  s sort  r reverse  Enter readers  Space look now";
  lines.push_back(shortened(keys, size.columns));
  std::string text = "\033[H";
  for (std::size_t i = 0; i < lines.size(); ++i) {
    text += lines[i] + "\033[K" + (i + 1 < lines.size() ? "\r\n" : "\033[J");
  }
  return text;
}

}  // namespace Zorbe::Tool
