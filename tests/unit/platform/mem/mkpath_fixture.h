// SPDX-License-Identifier: MIT
#pragma once

#include "support/child_process.h"
#include "support/fixture.h"

#include <fcntl.h>
#include <mem/mkpath.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>

namespace Zorbe::Test {

class MkpathTest : public ZorbeTest {
 protected:
  // Open to the ordinary user that a test may become.
  MkpathTest() { EXPECT_EQ(chmod(rootPath().c_str(), 0755), 0); }

  unsigned modeOf(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(inRoot(name).c_str(), &status), 0) << name;
    EXPECT_TRUE(S_ISDIR(status.st_mode)) << name;
    return status.st_mode & 07777u;
  }

  bool exists(const std::string& name) const { return access(inRoot(name).c_str(), F_OK) == 0; }

  void makeDirectory(const std::string& name, mode_t mode) const {
    ASSERT_EQ(mkdir(inRoot(name).c_str(), 0700), 0);
    ASSERT_EQ(chmod(inRoot(name).c_str(), mode), 0);
  }

  void makeFile(const std::string& name) const {
    const int fd = open(inRoot(name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(close(fd), 0);
  }

  void makeLink(const std::string& target, const std::string& name) const {
    ASSERT_EQ(symlink(target.c_str(), inRoot(name).c_str()), 0);
  }

  /// errno of mkpath, 0 when it succeeds.
  static int errorOf(const std::string& path) {
    errno = 0;
    return Mem::mkpath(path, 0777) == 0 ? 0 : errno;
  }

  /// mkpath makes "a/b" open to all.
  void expectMade() const {
    EXPECT_EQ(errorOf(inRoot("a/b")), 0);
    EXPECT_EQ(modeOf("a/b"), 0777u);
  }
  static int asOrdinaryUser(const std::function<int()>& body) {
    return std::stoi(resultInChild([&body] { return std::to_string(body()); }, User::kOrdinary));
  }
};

}  // namespace Zorbe::Test
