// SPDX-License-Identifier: MIT
//
// The simulated files and their watches against the kernel's: the same steps have the same
// results, and the same is told about them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "foundation/unique_fd.h"
#include "stress/simulation/directory.h"
#include "support/test_root.h"

namespace Zorbe::Test::Simulation {
namespace {

constexpr uint32_t mask = IN_CLOSE_WRITE | IN_DELETE;

/// What can be done with files, and what a watch has told. Paths begin with a slash.
class Files {
 public:
  virtual ~Files() = default;
  virtual void makeDirectories(const std::string& path) = 0;
  virtual int write(const std::string& path, const std::string& content) = 0;
  virtual int read(const std::string& path, std::string& content) = 0;
  virtual int remove(const std::string& path) = 0;
  virtual int removeTree(const std::string& path) = 0;
  virtual void watch(const std::string& path) = 0;
  virtual std::vector<std::string> told() = 0;
};

class Model final : public Files {
 public:
  ~Model() override { directory_.unwatch(watch_); }
  void makeDirectories(const std::string& path) override { directory_.makeDirectories(path); }
  int write(const std::string& path, const std::string& content) override {
    if (const int error = directory_.create(path)) return error;
    directory_.close(path, directory_.inode(path), content);
    return 0;
  }
  int read(const std::string& path, std::string& content) override {
    return directory_.read(path, content);
  }
  int remove(const std::string& path) override { return directory_.remove(path); }
  int removeTree(const std::string& path) override { return directory_.removeTree(path); }
  void watch(const std::string& path) override { directory_.watch(watch_, path, mask); }
  std::vector<std::string> told() override {
    std::vector<std::string> told;
    for (const Notice& notice : watch_.notices)
      told.push_back(notice.kind == Notice::Kind::deleted ? "deleted" : "changed " + notice.what);
    return told;
  }

 private:
  Directory directory_;
  Watch watch_;
};

class Kernel final : public Files {
 public:
  void makeDirectories(const std::string& path) override {
    std::filesystem::create_directories(root_.path() + path);
  }
  int write(const std::string& path, const std::string& content) override {
    const UniqueFd file(
        ::open((root_.path() + path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (file.get() < 0) return errno;
    const ssize_t size = ::write(file.get(), content.data(), content.size());
    return size == static_cast<ssize_t>(content.size()) ? 0 : EIO;
  }
  int read(const std::string& path, std::string& content) override {
    const UniqueFd file(::open((root_.path() + path).c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) return errno;
    char data[64];
    const ssize_t size = ::read(file.get(), data, sizeof data);
    if (size < 0) return errno;
    content.assign(data, static_cast<std::size_t>(size));
    return 0;
  }
  int remove(const std::string& path) override {
    return std::remove((root_.path() + path).c_str()) == 0 ? 0 : errno;
  }
  int removeTree(const std::string& path) override {
    return std::filesystem::remove_all(root_.path() + path) == 0 ? ENOENT : 0;
  }
  void watch(const std::string& path) override {
    EXPECT_GE(::inotify_add_watch(queue_.get(), (root_.path() + path).c_str(), mask), 0);
  }
  std::vector<std::string> told() override;

 private:
  TestRoot root_;
  UniqueFd queue_{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
};

std::vector<std::string> Kernel::told() {
  alignas(inotify_event) char buffer[4096];
  std::vector<std::string> told;
  for (;;) {
    const ssize_t size = ::read(queue_.get(), buffer, sizeof buffer);
    if (size <= 0) return told;
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof *event + event->len);
      if ((event->mask & mask) != 0) told.push_back(std::string("changed ") + event->name);
      if ((event->mask & IN_IGNORED) != 0) told.push_back("deleted");
    }
  }
}

/// Takes steps and writes down what comes of each.
class Steps {
 public:
  explicit Steps(Files& files) : files_(files) {}

  void makeDirectories(const std::string& path) { files_.makeDirectories(path); }
  void watch(const std::string& path) { files_.watch(path); }
  void write(const std::string& path, const std::string& content) {
    tell("write " + path, files_.write(path, content));
  }
  void remove(const std::string& path) { tell("remove " + path, files_.remove(path)); }
  void removeTree(const std::string& path) { tell("remove all " + path, files_.removeTree(path)); }
  void read(const std::string& path) {
    std::string content;
    tell("read " + path, files_.read(path, content));
    journal.push_back(content);
  }

  std::vector<std::string> journal;

 private:
  void tell(const std::string& step, int error) {
    journal.push_back(step + ": " + std::strerror(error));
  }

  Files& files_;
};

using Script = std::function<void(Steps&)>;

template <class SomeFiles>
std::vector<std::string> outcome(const Script& script) {
  SomeFiles files;
  Steps steps(files);
  script(steps);
  for (const std::string& notice : files.told()) steps.journal.push_back(notice);
  return steps.journal;
}

void compare(const Script& script) {
  const std::vector<std::string> expected = outcome<Kernel>(script);
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(outcome<Model>(script), expected);
}

TEST(DirectoryModelTest, AFileHasWhatWasWrittenLast) {
  compare([](Steps& steps) {
    steps.makeDirectories("/a/b");
    steps.read("/a/b/file");
    steps.write("/a/b/file", "one");
    steps.write("/a/b/file", "2");
    steps.read("/a/b/file");
  });
}

TEST(DirectoryModelTest, AFileNeedsADirectoryAndADirectoryIsNone) {
  compare([](Steps& steps) {
    steps.write("/a/file", "x");
    steps.makeDirectories("/a");
    steps.write("/a", "x");
    steps.write("/a/file", "x");
  });
}

TEST(DirectoryModelTest, OnlyWhatIsEmptyIsRemovedByItself) {
  compare([](Steps& steps) {
    steps.makeDirectories("/a/b");
    steps.remove("/a");
    steps.remove("/a/b");
    steps.remove("/a");
    steps.remove("/a");
    steps.removeTree("/a");
  });
}

TEST(DirectoryModelTest, AWatchTellsOfFilesThatAreWrittenAndRemoved) {
  compare([](Steps& steps) {
    steps.makeDirectories("/a/b");
    steps.watch("/a");
    steps.write("/a/file", "x");
    steps.write("/a/b/below", "x");
    steps.remove("/a/file");
    steps.write("/beside", "x");
  });
}

TEST(DirectoryModelTest, EqualEventsInARowAreToldOnce) {
  compare([](Steps& steps) {
    steps.makeDirectories("/a");
    steps.watch("/a");
    for (const char* name : {"/a/one", "/a/one", "/a/two", "/a/one"}) steps.write(name, "x");
  });
}

TEST(DirectoryModelTest, AWatchEndsWithItsDirectoryAndDoesNotReturnWithIt) {
  compare([](Steps& steps) {
    steps.makeDirectories("/a/b");
    steps.write("/a/b/file", "x");
    steps.watch("/a/b");
    steps.removeTree("/a/b");
    steps.makeDirectories("/a/b");
    steps.write("/a/b/file", "x");
  });
}

TEST(DirectoryModelTest, WatchingADirectoryAgainLosesNothing) {
  compare([](Steps& steps) {
    steps.makeDirectories("/a");
    steps.watch("/a");
    steps.write("/a/file", "x");
    steps.watch("/a");
    steps.remove("/a/file");
  });
}

TEST(DirectoryModelTest, TheRemovalOfADirectoryIsToldToWhoWatchesItsParent) {
  compare([](Steps& steps) {
    steps.makeDirectories("/a/b");
    steps.watch("/a");
    steps.removeTree("/a/b");
    steps.makeDirectories("/a/b");
    steps.remove("/a/b");
  });
}

}  // namespace
}  // namespace Zorbe::Test::Simulation
