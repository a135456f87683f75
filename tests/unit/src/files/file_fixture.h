// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "support/file_content.h"
#include "support/fixture.h"

#include <sys/stat.h>
#include <zorbe/util.h>

#include <string>

namespace Zorbe::Test {

/// A file of the test's own directory, which does not exist at first. The calls of the fixture do
/// not fail.
class FileTest : public ZorbeTest {
 protected:
  explicit FileTest(const std::string& name = "file") : file(inRoot(name)) {}

  void put(const std::string& content) const { putContent(file, content); }

  /// The message about the file when it cannot be opened to be read.
  Message unopened(const std::string& reason) const {
    return {5, "Util::fileRead() unable to open file " + file + ": " + reason};
  }

  /// The one message about the file when it cannot be read.
  auto failedRead(const std::string& reason) const {
    return testing::ElementsAre(
        Logged(1, "Util::fileRead() failed to read from " + file + " error: " + reason));
  }

  /// A file that cannot be opened is empty, and logged when the caller wants that.
  void expectUnopened(const std::string& reason) {
    EXPECT_EQ(Util::fileRead(handler, file, false), "");
    EXPECT_TRUE(handler.take().empty());
    EXPECT_EQ(Util::fileRead(handler, file, true), "");
    EXPECT_EQ(handler.take(), std::vector<Message>{unopened(reason)});
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
