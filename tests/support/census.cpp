// SPDX-License-Identifier: MIT
#include "support/census.h"

#include "fault/fault.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <system_error>

namespace Zorbe::Test {
namespace {

struct CloseDir {
  void operator()(DIR* directory) const { closedir(directory); }
};

// What the descriptor refers to, whether or not its file has been unlinked meanwhile: one
// that was inherited from the test runner may be.
std::string targetOf(const std::string& path) {
  char text[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), text, sizeof text);
  if (length < 0) return "?";
  const std::string what(text, static_cast<size_t>(length));
  return what.substr(0, what.rfind(" (deleted)"));
}

}  // namespace

// The descriptor that reads the directory is not counted.
Census Census::take(const std::string& process) {
  const Fault::Bypass bypass;
  const std::string folder = "/proc/" + process + "/fd";
  const std::unique_ptr<DIR, CloseDir> directory(opendir(folder.c_str()));
  if (!directory) throw std::system_error(errno, std::generic_category(), folder);
  Census census;
  while (const dirent* const entry = readdir(directory.get())) {
    if (entry->d_name[0] == '.') continue;
    const int fd = std::stoi(entry->d_name);
    if (process == "self" && fd == dirfd(directory.get())) continue;
    census.open_[fd] = targetOf(folder + "/" + entry->d_name);
  }
  return census;
}

std::size_t Census::count(const std::string& target) const {
  return static_cast<std::size_t>(std::count_if(
      open_.begin(), open_.end(), [&target](const auto& entry) { return entry.second == target; }));
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
