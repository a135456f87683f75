// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/file_content.h"
#include "support/fixture.h"

namespace Zorbe::Test {

/// For tests that drive the example programs as a user would.
class ExamplePrograms : public ZorbeTest {
 protected:
  static std::string program(const std::string& name) {
    return std::string(ZORBE_EXAMPLE_PROGRAMS) + "/" + name;
  }

  static ChildProcess start(std::vector<std::string> words,
                            const std::string& input = "/dev/null") {
    words[0] = program(words[0]);
    return ChildProcess(words, input);
  }
};

}  // namespace Zorbe::Test
