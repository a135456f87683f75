// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "support/fixture.h"

#include <fstream>
#include <sstream>

namespace Zorbe::Test {

/// A test with a file, which does not exist at first.
class FileTest : public ZorbeTest {
 protected:
  explicit FileTest(const std::string& name) : file(inRoot(name)) {}

  void put(const std::string& content) const {
    const Fault::Bypass bypass;
    std::ofstream(file, std::ios::binary) << content;
  }

  static std::string contentOf(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

  /// The message about the file when it cannot be opened to be read.
  Message unopened(const std::string& reason) const {
    return {5, "Util::fileRead() unable to open file " + file + ": " + reason};
  }

  const std::string file;
};

}  // namespace Zorbe::Test
