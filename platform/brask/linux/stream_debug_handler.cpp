// SPDX-License-Identifier: MIT
#include "brask/linux/stream_debug_handler.h"

#include <string>

#include "brask/linux/monotonic.h"

namespace Brask::Linux {

namespace {

std::string secondsWithMicroseconds(int64_t nanoseconds) {
  const int64_t microseconds = nanoseconds / 1000;
  const std::string fraction = std::to_string(1000000 + microseconds % 1000000);
  return std::to_string(microseconds / 1000000) + "." + fraction.substr(1);
}

std::string onOneLine(const std::string& text) {
  std::string line;
  line.reserve(text.size());
  for (const char character : text) {
    if (character == '\n') {
      line += "\\n";
    } else {
      line += character;
    }
  }
  return line;
}

}  // namespace

StreamDebugHandler::StreamDebugHandler(std::ostream& stream, int maxLevel)
    : stream_(stream), maxLevel_(maxLevel) {}

StreamDebugHandler::~StreamDebugHandler() = default;

bool StreamDebugHandler::isEnabled(int level) {
  return level <= maxLevel_;
}

void StreamDebugHandler::emit(std::ostringstream& message, int level) {
  if (!isEnabled(level)) return;
  // One insertion of a whole line, whatever format the client's stream is set to.
  const std::string line = secondsWithMicroseconds(monotonicNow()) + " " + std::to_string(level) +
                           " " + onOneLine(message.str()) + "\n";
  stream_.write(line.data(), static_cast<std::streamsize>(line.size()));
  stream_.flush();
}

}  // namespace Brask::Linux
