// SPDX-License-Identifier: MIT
#pragma once

#include "fakes/zorbe_test.h"
#include "fault/fault.h"

#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

namespace Zorbe::Test {

/// A file of the test's own directory, and what it holds. What the fixture does itself does
/// not fail.
class FileTest : public ZorbeTest {
 protected:
  FileTest() : file(inRoot("file")) {}

  void put(const std::string& content) {
    const Fault::Bypass bypass;
    std::ofstream(file, std::ios::binary) << content;
  }
  static std::string contentOf(const std::string& path) {
    const Fault::Bypass bypass;
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
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

  std::string file;
};

}  // namespace Zorbe::Test
