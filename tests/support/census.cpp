// SPDX-License-Identifier: MIT
#include "support/census.h"

#include "fault/fault.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <memory>
#include <system_error>

namespace Zorbe::Test {
namespace {

constexpr const char* kFolder = "/proc/self/fd";

struct CloseDir {
  void operator()(DIR* directory) const { closedir(directory); }
};

// What the descriptor refers to, whether or not its file has been unlinked meanwhile: one
// that was inherited from the test runner may be.
std::string target(const char* fd) {
  char text[PATH_MAX];
  const ssize_t length = readlink((std::string(kFolder) + "/" + fd).c_str(), text, sizeof text);
  if (length < 0) return "?";
  const std::string what(text, static_cast<size_t>(length));
  return what.substr(0, what.rfind(" (deleted)"));
}

}  // namespace

Census Census::take() {
  const Fault::Bypass bypass;
  const std::unique_ptr<DIR, CloseDir> directory(opendir(kFolder));
  if (!directory) throw std::system_error(errno, std::generic_category(), kFolder);
  Census census;
  while (const dirent* const entry = readdir(directory.get())) {
    if (entry->d_name[0] == '.') continue;
    const int fd = std::stoi(entry->d_name);
    if (fd != dirfd(directory.get())) census.open_[fd] = target(entry->d_name);
  }
  return census;
}

std::vector<int> Census::openedBy(const Census& later) const {
  std::vector<int> opened;
  for (const auto& [fd, what] : later.open_) {
    const auto before = open_.find(fd);
    if (before == open_.end() || before->second != what) opened.push_back(fd);
  }
  return opened;
}

std::string Census::difference(const Census& later) const {
  return linesOnlyHere(later, '-') + later.linesOnlyHere(*this, '+');
}

std::string Census::linesOnlyHere(const Census& other, char sign) const {
  std::string lines;
  for (const int fd : other.openedBy(*this)) {
    lines += std::string(1, sign) + " " + std::to_string(fd) + " -> " + open_.at(fd) + "\n";
  }
  return lines;
}

}  // namespace Zorbe::Test
