// SPDX-License-Identifier: MIT
#include "host/handler.h"

#include <iostream>
#include <utility>

#include "output/text.h"

namespace Zorbe::Tool {

void Handler::emit(std::ostringstream& message, int level) {
  if (level <= maxLevel_) std::cerr << level << ' ' << printable(message.str()) << '\n';
  if (level == 0) failures_.push_back(message.str());
}

std::vector<std::string> Handler::takeFailures() {
  return std::exchange(failures_, {});
}

}  // namespace Zorbe::Tool
