// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "support/fixture.h"

#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

namespace Zorbe::Test {

/// A file of the test's own directory, which does not exist at first. The calls of the fixture do
/// not fail.
class FileTest : public ZorbeTest {
 protected:
  explicit FileTest(const std::string& name = "file") : file(inRoot(name)) {}

  void put(const std::string& content) const {
    const Fault::Bypass bypass;
    std::ofstream(file, std::ios::binary) << content;
  }

  static std::string contentOf(const std::string& path) {
    const Fault::Bypass bypass;
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

  /// The message about the file when it cannot be opened to be read.
  Message unopened(const std::string& reason) const {
    return {5, "Util::fileRead() unable to open file " + file + ": " + reason};
  }

  /// The descriptor by which this process has the file open.
  int openDescriptor() const {
    const Fault::Bypass bypass;
    struct stat wanted = {};
    if (stat(file.c_str(), &wanted) != 0) return -1;
    for (int fd = 3; fd < 64; ++fd) {
      struct stat opened = {};
      if (fstat(fd, &opened) == 0 && opened.st_ino == wanted.st_ino &&
          opened.st_dev == wanted.st_dev) {
        return fd;
      }
    }
    return -1;
  }

  const std::string file;
};

}  // namespace Zorbe::Test
