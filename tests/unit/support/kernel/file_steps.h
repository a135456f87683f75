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

/// What can be done with files and watches. Paths begin with a slash; results are errnos.
class System {
 public:
  virtual ~System() = default;
  virtual void makeDirectories(const std::string& path) = 0;
  virtual int makeDirectory(const std::string& path, mode_t mode) = 0;
  virtual int changeMode(const std::string& path, mode_t mode) = 0;
  virtual int examine(const std::string& path, Files::Links links, mode_t& mode) = 0;
  virtual void makeLink(const std::string& path) = 0;
  virtual int write(const std::string& path, const std::string& content) = 0;
  virtual int read(const std::string& path, std::string& content) = 0;
  virtual int remove(const std::string& path) = 0;
  virtual int removeTree(const std::string& path) = 0;
  virtual int watch(const std::string& path, uint32_t mask) = 0;
  virtual bool unwatch(int wd) = 0;

  /// The bytes of the next read(2) of the events.
  virtual std::size_t readEvents(char* buffer, std::size_t size) = 0;
};

class Model : public System {
 public:
  Model() { files_.attach(&inotify_); }
  void makeDirectories(const std::string& path) override { files_.makeDirectories(path); }
  int makeDirectory(const std::string& path, mode_t mode) override {
    return files_.makeDirectory(path, mode);
  }
  int changeMode(const std::string& path, mode_t mode) override {
    return files_.changeMode(path, mode);
  }
  int examine(const std::string& path, Files::Links links, mode_t& mode) override {
    return files_.examine(path, links, mode);
  }
  void makeLink(const std::string& path) override { files_.makeLink(path); }
  int write(const std::string& path, const std::string& content) override {
    if (const int error = files_.create(path)) return error;
    files_.close(path, files_.inode(path), content);
    return 0;
  }
  int read(const std::string& path, std::string& content) override {
    return files_.read(path, content);
  }
  int remove(const std::string& path) override { return files_.remove(path); }
  int removeTree(const std::string& path) override { return files_.removeTree(path); }
  int watch(const std::string& path, uint32_t mask) override {
    return inotify_.add(files_.inode(path), mask);
  }
  bool unwatch(int wd) override { return inotify_.remove(wd); }
  std::size_t readEvents(char* buffer, std::size_t size) override {
    std::vector<InotifyEvent> taken;
    return inotify_.read(buffer, size, SIZE_MAX, taken);
  }

 protected:
  Files files_;

 private:
  Inotify inotify_{systemsQueueLimit()};
};

class ModelWithParentFirst final : public Model {
 public:
  ModelWithParentFirst() { files_.reportsParentFirst = true; }
};

class Linux final : public System {
 public:
  void makeDirectories(const std::string& path) override {
    std::filesystem::create_directories(real(path));
  }
  int makeDirectory(const std::string& path, mode_t mode) override {
    return result(::mkdir(real(path).c_str(), mode));
  }
  int changeMode(const std::string& path, mode_t mode) override {
    return result(::chmod(real(path).c_str(), mode));
  }
  int examine(const std::string& path, Files::Links links, mode_t& mode) override {
    struct stat status {};
    const auto examiner = links == Files::Links::kFollowed ? ::stat : ::lstat;
    const int error = result(examiner(real(path).c_str(), &status));
    mode = status.st_mode;
    return error;
  }
  void makeLink(const std::string& path) override {
    EXPECT_EQ(::symlink("nowhere", real(path).c_str()), 0);
  }
  int write(const std::string& path, const std::string& content) override {
    const Descriptor file(
        ::open(real(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    const ssize_t size = ::write(file.get(), content.data(), content.size());
    return size == static_cast<ssize_t>(content.size()) ? 0 : EIO;
  }
  int read(const std::string& path, std::string& content) override {
    const Descriptor file(::open(real(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) return errno;
    char data[64];
    const ssize_t size = ::read(file.get(), data, sizeof data);
    if (size < 0) return errno;
    content.assign(data, static_cast<std::size_t>(size));
    return 0;
  }
  int remove(const std::string& path) override { return result(std::remove(real(path).c_str())); }
  int removeTree(const std::string& path) override {
    return std::filesystem::remove_all(real(path)) == 0 ? ENOENT : 0;
  }
  int watch(const std::string& path, uint32_t mask) override {
    return ::inotify_add_watch(inotify_.get(), real(path).c_str(), mask);
  }
  bool unwatch(int wd) override { return ::inotify_rm_watch(inotify_.get(), wd) == 0; }
  std::size_t readEvents(char* buffer, std::size_t size) override {
    return static_cast<std::size_t>(std::max<ssize_t>(0, ::read(inotify_.get(), buffer, size)));
  }

 private:
  static int result(int returned) { return returned == 0 ? 0 : errno; }
  std::string real(const std::string& path) const { return root_.path() + path; }

  TestRoot root_;
  Descriptor inotify_{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
};

/// Takes steps and records the result of each.
class Steps {
 public:
  explicit Steps(System& system) : system_(system) {}

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

  System& system_;
};

using Script = std::function<void(Steps&)>;

template <class SomeSystem>
std::vector<std::string> outcome(const Script& script) {
  SomeSystem system;
  Steps steps(system);
  script(steps);
  steps.readEvents();
  return steps.journal;
}

/// The model has the results that Linux has.
inline void compare(const Script& script) {
  const std::vector<std::string> expected = outcome<Linux>(script);
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(outcome<Model>(script), expected);
}

}  // namespace Zorbe::Test::Kernel
