// SPDX-License-Identifier: MIT
#include "progress/status_line.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include "output/fit.h"
#include "output/text.h"

namespace Zorbe::Relay {

namespace {

constexpr double kUpdateSeconds = 0.2;

// From the begin of the line to its end.
constexpr const char* kErased = "\r\033[K";

}  // namespace

StatusLine::StatusLine() : isTerminal_(::isatty(STDERR_FILENO) != 0) {}

// The last column stays empty: some terminals begin a line after it.
void StatusLine::show(const std::string& text) {
  if (!isTerminal_) return;
  const auto width = Tool::terminalWidth(STDERR_FILENO);
  const std::string shown = width ? Tool::shortened(text, std::max<size_t>(*width, 2) - 1) : text;
  std::cerr << kErased + shown << std::flush;
  isShown_ = true;
}

void StatusLine::clear() {
  if (std::exchange(isShown_, false)) std::cerr << kErased << std::flush;
}

LogAboveLine::LogAboveLine(StatusLine& line, int maxLevel)
    : StreamDebugHandler(std::cerr, maxLevel, {}), line_(line) {}

void LogAboveLine::emit(std::ostringstream& message, int level) {
  line_.clear();
  StreamDebugHandler::emit(message, level);
}

ProgressDisplay::ProgressDisplay(StatusLine& line, const std::string& table, Ask ask)
    : line_(line), table_(Tool::word(table)), ask_(std::move(ask)) {
  if (line_.isTerminal()) timer_.start(kUpdateSeconds);
}

void ProgressDisplay::update() {
  timer_.start(kUpdateSeconds);
  const auto progress = ask_();
  if (progress) return line_.show(print(table_, *progress));
  line_.clear();
}

std::string print(const std::string& table, const Progress& progress) {
  std::string text = table + ": " + progress.step;
  if (progress.total != 0) {
    const uint64_t done = std::min(progress.done, progress.total);
    text += ", " + std::to_string(done * 100 / progress.total) + " %";
  }
  return text + ", " + std::to_string(progress.records) + " records";
}

}  // namespace Zorbe::Relay
