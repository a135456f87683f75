// SPDX-License-Identifier: MIT
//
// Steps with files and watches that are taken by the model of support/kernel and by Linux.
#pragma once

#include "support/kernel/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "support/descriptor.h"
#include "support/test_root.h"

namespace Zorbe::Test::Kernel {
inline constexpr uint32_t kMask = IN_CLOSE_WRITE | IN_DELETE | IN_DELETE_SELF;

inline std::size_t systemsQueueLimit() {
  std::size_t limit = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
  return limit;
}

/// The model, with what can be done to files and watches besides. Paths begin with a slash; results
/// are errnos.
class Model : public Files {
 public:
  Model() { attach(&inotify_); }

  int write(const std::string& path, const std::string& content) {
    if (const int error = create(path)) return error;
    close(path, inode(path), content);
    return 0;
  }
  int watch(const std::string& path, uint32_t mask) { return inotify_.add(inode(path), mask); }
  bool unwatch(int wd) { return inotify_.remove(wd); }
  /// The bytes of the next read(2) of the events.
  std::size_t readEvents(char* buffer, std::size_t size) {
    std::vector<InotifyEvent> taken;
    return inotify_.read(buffer, size, SIZE_MAX, taken);
  }

 private:
  Inotify inotify_{systemsQueueLimit()};
};

class ModelWithParentFirst final : public Model {
 public:
  ModelWithParentFirst() { reportsParentFirst = true; }
};

/// The same with the files of a directory of the test's own.
class Linux {
 public:
  void makeDirectories(const std::string& path) { std::filesystem::create_directories(real(path)); }
  int makeDirectory(const std::string& path, mode_t mode) {
    return result(::mkdir(real(path).c_str(), mode));
  }
  int changeMode(const std::string& path, mode_t mode) {
    return result(::chmod(real(path).c_str(), mode));
  }
  int examine(const std::string& path, Files::Links links, mode_t& mode) {
    struct stat status {};
    const auto examiner = links == Files::Links::kFollowed ? ::stat : ::lstat;
    const int error = result(examiner(real(path).c_str(), &status));
    mode = status.st_mode;
    return error;
  }
  void makeLink(const std::string& path) { EXPECT_EQ(::symlink("nowhere", real(path).c_str()), 0); }
  int write(const std::string& path, const std::string& content) {
    const Descriptor file(
        ::open(real(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    const ssize_t size = ::write(file.get(), content.data(), content.size());
    return size == static_cast<ssize_t>(content.size()) ? 0 : EIO;
  }
  int read(const std::string& path, std::string& content) {
    const Descriptor file(::open(real(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) return errno;
    char data[64];
    const ssize_t size = ::read(file.get(), data, sizeof data);
    if (size < 0) return errno;
    content.assign(data, static_cast<std::size_t>(size));
    return 0;
  }
  int link(const std::string& path) {
    const std::string target = real(path);
    const std::string directory = target.substr(0, target.rfind('/'));
    const Descriptor file(::open(directory.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    const std::string source = "/proc/self/fd/" + std::to_string(file.get());
    return result(::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW));
  }
  int rename(const std::string& from, const std::string& to) {
    return result(std::rename(real(from).c_str(), real(to).c_str()));
  }
  int remove(const std::string& path) { return result(std::remove(real(path).c_str())); }
  int removeTree(const std::string& path) {
    return std::filesystem::remove_all(real(path)) == 0 ? ENOENT : 0;
  }
  int watch(const std::string& path, uint32_t mask) {
    return ::inotify_add_watch(inotify_.get(), real(path).c_str(), mask);
  }
  bool unwatch(int wd) { return ::inotify_rm_watch(inotify_.get(), wd) == 0; }
  std::size_t readEvents(char* buffer, std::size_t size) {
    return static_cast<std::size_t>(std::max<ssize_t>(0, ::read(inotify_.get(), buffer, size)));
  }

 private:
  static int result(int returned) { return returned == 0 ? 0 : errno; }
  std::string real(const std::string& path) const { return root_.path() + path; }

  TestRoot root_;
  Descriptor inotify_{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
};

/// Takes steps and records the result of each.
template <class System>
class Steps {
 public:
  void makeDirectories(const std::string& path) { system_.makeDirectories(path); }
  void makeLink(const std::string& path) { system_.makeLink(path); }
  int watch(const std::string& path, uint32_t mask = kMask) {
    const int wd = system_.watch(path, mask);
    journal.push_back("watch " + path + ": " + std::to_string(wd));
    return wd;
  }
  void unwatch(int wd) { journal.push_back(system_.unwatch(wd) ? "unwatched" : "not unwatched"); }
  void write(const std::string& path, const std::string& content) {
    record("write " + path, system_.write(path, content));
  }
  void link(const std::string& path) { record("link " + path, system_.link(path)); }
  void rename(const std::string& from, const std::string& to) {
    record("rename " + from + " " + to, system_.rename(from, to));
  }
  void remove(const std::string& path) { record("remove " + path, system_.remove(path)); }
  void removeTree(const std::string& path) {
    record("remove all " + path, system_.removeTree(path));
  }
  void makeDirectory(const std::string& path, mode_t mode) {
    record("mkdir " + path, system_.makeDirectory(path, mode));
  }
  void changeMode(const std::string& path, mode_t mode) {
    record("chmod " + path, system_.changeMode(path, mode));
  }
  void examine(const std::string& path) {
    for (const auto links : {Files::Links::kFollowed, Files::Links::kNotFollowed}) {
      mode_t mode = 0;
      const int error = system_.examine(path, links, mode);
      record("stat " + path + (error == 0 ? " " + std::to_string(mode) : ""), error);
    }
  }
  void read(const std::string& path) {
    std::string content;
    record("read " + path, system_.read(path, content));
    journal.push_back(content);
  }
  void readEvents() {
    alignas(inotify_event) char buffer[4096];
    while (const std::size_t size = system_.readEvents(buffer, sizeof buffer)) {
      for (std::size_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        journal.push_back("event of " + std::to_string(event->wd) + ": " +
                          std::to_string(event->mask) + " " + (event->len == 0 ? "" : event->name));
        at += sizeof *event + event->len;
      }
    }
  }

  std::vector<std::string> journal;

 private:
  void record(const std::string& step, int error) {
    journal.push_back(step + ": " + std::strerror(error));
  }

  System system_;
};

template <class System, class Script>
std::vector<std::string> outcome(Script script) {
  Steps<System> steps;
  script(steps);
  steps.readEvents();
  return steps.journal;
}

/// The model has the results that Linux has.
template <class Script>
void compare(Script script) {
  const std::vector<std::string> expected = outcome<Linux>(script);
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(outcome<Model>(script), expected);
}

}  // namespace Zorbe::Test::Kernel
