// SPDX-License-Identifier: MIT
#include "records/lines.h"

#include <utility>

namespace Zorbe::Tool {

bool LineReader::next(Line& line) {
  const size_t end = input_.find('\n');
  const bool isWhole = end != std::string_view::npos;
  append(input_.substr(0, end));
  input_.remove_prefix(isWhole ? end + 1 : input_.size());
  if (!isWhole && !(isAtEnd_ && isBegun_)) return false;
  line = std::exchange(line_, Line{});
  line.number = ++number_;
  isBegun_ = false;
  return true;
}

void LineReader::append(std::string_view piece) {
  if (piece.empty()) return;
  isBegun_ = true;
  const size_t room = longest_ - line_.text.size();
  line_.isTooLong = line_.isTooLong || piece.size() > room;
  line_.text += piece.substr(0, room);
}

}  // namespace Zorbe::Tool
