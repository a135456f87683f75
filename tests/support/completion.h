// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "support/outcome.h"

namespace Zorbe::Test {

/// What the shell offers for the last word of a command line, a line each. The commands are found
/// in `path`.
inline std::string completionsOf(const std::string& path, const Words& commandLine) {
  Words words{"/bin/bash",
              "-c",
              "PATH=$1:$PATH; . \"$2\"; COMP_WORDS=(\"${@:3}\"); COMP_CWORD=$((${#COMP_WORDS[@]} "
              "- 1)); _zorbe; printf '%s\\n' \"${COMPREPLY[@]}\" | sed '/^$/d'",
              "bash",
              path,
              ZORBE_COMPLETION};
  words.insert(words.end(), commandLine.begin(), commandLine.end());
  return runProgram(words).out;
}

}  // namespace Zorbe::Test
