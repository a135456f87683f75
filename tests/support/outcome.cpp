// SPDX-License-Identifier: MIT
#include "support/outcome.h"

#include <sstream>
#include <utility>

#include "support/child_process.h"

namespace Zorbe::Test {

Words Outcome::lines() const {
  Words lines;
  std::istringstream stream(out);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Outcome runProgram(const Words& words) {
  ChildProcess child(words);
  std::string out = child.channel().receiveAll();
  const int status = child.finish();
  return {status, std::move(out), child.log()};
}

}  // namespace Zorbe::Test
