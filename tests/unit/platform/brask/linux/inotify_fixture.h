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

  // The path of a directory that is made, watched and removed.
  std::string watchAndRemove(const InotifyProbe& probe, const std::string& name, uint32_t mask) {
    const std::string path = directory.make(name);
    probe.control->addWatch(path, mask);
    remove(path);
    return path;
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
    return Zorbe::Test::Census::take().count("anon_inode:inotify");
  }

  Directory directory;
};

/// A directory in another one, and a control for each.
class InotifyTreeFixture : public InotifyTest {
 protected:
  void watch(uint32_t outerMask = IN_DELETE) {
    outer.control->addWatch(top, outerMask);
    askForLeaf();
  }

  void askForLeaf() { inner.control->addWatch(leaf, IN_CREATE); }
  // In inotifyDeleted() the inner control's client does this, and asks for its watch again.
  void whenInnerEnds(const std::function<void()>& action) {
    inner.onEvent = [this, action] {
      if (inner.reports.back() != "deleted") return;
      action();
      askForLeaf();
    };
  }
  std::function<void()> makingItAgain() {
    return [this] { makeTree(); };
  }
  static void nothing() {}

  void removeTree() {
    remove(leaf);
    remove(top);
  }

  void makeTree() {
    directory.make("top");
    directory.make("top/leaf");
  }
  // Both controls ask for what is not there, and receive that.
  void loseTree() {
    removeTree();
    askForLeaf();
    outer.control->addWatch(top, IN_DELETE);
    settle();
    outer.reports.clear();
  }
  // A file of the outer directory comes and goes, and that is delivered.
  void makeAndErase(const std::string& name) {
    touch(top + "/" + name);
    erase(top + "/" + name);
    settle();
  }

  const std::string top = directory.make("top");
  const std::string leaf = directory.make("top/leaf");
  InotifyProbe outer, inner;
};

}  // namespace LoopTesting
