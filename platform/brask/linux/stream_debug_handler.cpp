// SPDX-License-Identifier: MIT
#include "brask/linux/stream_debug_handler.h"

#include <algorithm>
#include <string>

#include "brask/linux/control_characters.h"
#include "brask/linux/monotonic.h"
#include "brask/linux/rate_limit.h"

namespace Brask::Linux {

namespace {

constexpr int kLastLimitedLevel = 1;

std::string secondsWithMicroseconds(int64_t nanoseconds) {
  const int64_t microseconds = nanoseconds / 1000;
  const std::string fraction = std::to_string(1000000 + microseconds % 1000000);
  return std::to_string(microseconds / 1000000) + "." + fraction.substr(1);
}

}  // namespace

StreamDebugHandler::StreamDebugHandler(std::ostream& stream, int maxLevel)
    : stream_(stream), maxLevel_(maxLevel) {}

StreamDebugHandler::StreamDebugHandler(std::ostream& stream, int maxLevel, Limit limit)
    : stream_(stream),
      maxLevel_(maxLevel),
      limit_(std::make_unique<RateLimit>(limit.burst, limit.perSecond, monotonicNow())) {}

StreamDebugHandler::~StreamDebugHandler() {
  try {
    tellLeftOut(monotonicNow());
  } catch (...) {  // no memory, or a stream that throws: the count is lost
  }
}

bool StreamDebugHandler::isEnabled(int level) {
  return level <= maxLevel_;
}

void StreamDebugHandler::emit(std::ostringstream& message, int level) {
  if (!isEnabled(level)) return;
  const int64_t now = monotonicNow();
  if (!admit(level, now)) return;
  write(now, level, message.str());
}

// Writes what was left out as soon as there is room again: once a second while messages continue.
bool StreamDebugHandler::admit(int level, int64_t now) {
  if (!limit_) return true;
  const bool limited = level <= kLastLimitedLevel;
  const bool room = limit_->hasRoom(now);
  if (limited && !room) {
    leftOutLevel_ = leftOut_ == 0 ? level : std::min(leftOutLevel_, level);
    ++leftOut_;
    return false;
  }
  if (limited) limit_->take();
  if (room) tellLeftOut(now);
  return true;
}

void StreamDebugHandler::tellLeftOut(int64_t now) {
  if (leftOut_ == 0) return;
  const std::string text =
      "StreamDebugHandler::emit() too many messages of levels 0 and 1, left out: " +
      std::to_string(leftOut_);
  leftOut_ = 0;
  write(now, leftOutLevel_, text);
}

void StreamDebugHandler::write(int64_t now, int level, const std::string& text) {
  // One insertion of a whole line, regardless of the format of the client's stream.
  const std::string line = secondsWithMicroseconds(now) + " " + std::to_string(level) + " " +
                           escapeControls(text) + "\n";
  stream_.write(line.data(), static_cast<std::streamsize>(line.size()));
  stream_.flush();
}

}  // namespace Brask::Linux
