// SPDX-License-Identifier: MIT
#pragma once

#include <sys/inotify.h>
#include <sys/stat.h>

#include <fstream>

#include "unit/platform/brask/linux/loop_fixture.h"

namespace LoopTesting {

using Reports = std::vector<std::string>;

/// A test with a directory to watch.
class InotifyTest : public LoopTest {
 protected:
  static void remove(const std::string& path) { ASSERT_EQ(0, ::rmdir(path.c_str())) << path; }
  static void erase(const std::string& path) { ASSERT_EQ(0, ::unlink(path.c_str())) << path; }
  static void move(const std::string& from, const std::string& to) {
    ASSERT_EQ(0, ::rename(from.c_str(), to.c_str())) << from;
  }

  // The kernel's own list of what is watched: one line a watch.
  static std::vector<std::string> kernelWatches() {
    std::vector<std::string> watches;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
      std::ifstream info(entry.path());
      for (std::string line; std::getline(info, line);) {
        if (line.rfind("inotify wd:", 0) == 0) watches.push_back(line);
      }
    }
    return watches;
  }

  static size_t inotifyDescriptors() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry.path(), gone) == "anon_inode:inotify") ++count;
    }
    return count;
  }

  Directory directory;
};

/// A directory in another one, and a control for each.
class InotifyTreeFixture : public InotifyTest {
 protected:
  void watch(uint32_t outerMask = IN_DELETE) {
    outer.control->addWatch(top, outerMask);
    inner.control->addWatch(leaf, IN_CREATE);
  }

  // In inotifyDeleted() the inner control's client does this, and asks for its watch again.
  void whenInnerEnds(const std::function<void()>& action) {
    inner.onEvent = [this, action] {
      if (inner.reports.back() != "deleted") return;
      action();
      inner.control->addWatch(leaf, IN_CREATE);
    };
  }
  std::function<void()> makingItAgain() {
    return [this] { makeTree(); };
  }

  void removeTree() {
    remove(leaf);
    remove(top);
  }

  void makeTree() {
    directory.make("top");
    directory.make("top/leaf");
  }

  const std::string top = directory.make("top");
  const std::string leaf = directory.make("top/leaf");
  InotifyProbe outer, inner;
};

}  // namespace LoopTesting
