// SPDX-License-Identifier: MIT
#include "fuzz/made_up_disk.h"

#include "fault/fault.h"

#include <fcntl.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <climits>
#include <utility>

namespace Zorbe::Test::Fuzz {
namespace {

MadeUpDisk* current = nullptr;

int result(int error) {
  if (error == 0) return 0;
  errno = error;
  return -1;
}

}  // namespace

MadeUpDisk::MadeUpDisk()
    : entries_{{"", S_IFDIR | 0755},
               {"/d", S_IFDIR | 0755},
               {"/d/e", S_IFDIR | 0755},
               {"/f", S_IFREG | 0644},
               {"/n", S_IFLNK | 0777}} {}

void MadeUpDisk::takePlace() {
  current = this;
  Fault::divert("stat", stat);
  Fault::divert("lstat", lstat);
  Fault::divert("open", open);
  Fault::divert("openat", openAt);
  Fault::divert("mkdirat", makeAt);
  Fault::divert("fchmod", changeMode);
}

std::vector<std::string> MadeUpDisk::components(const std::string& path) {
  std::vector<std::string> found;
  std::string component;
  for (const char c : path + '/') {
    if (c != '/') {
      component += c;
    } else if (!component.empty()) {
      found.push_back(std::exchange(component, {}));
    }
  }
  return found;
}

// Without "." and "..": there are no links to directories.
std::string MadeUpDisk::plain(const std::string& path) {
  std::string whole;
  for (const std::string& component : components(path)) {
    if (component == "..") whole.erase(whole.empty() ? 0 : whole.rfind('/'));
    if (component != "." && component != "..") whole += "/" + component;
  }
  return whole;
}

// What a walk along the path comes to: 0 and the mode of what is there, or an errno.
int MadeUpDisk::examine(const std::string& path, Links links, mode_t& mode) const {
  std::string way;
  mode = S_IFDIR;
  for (const std::string& component : components(path)) {
    if (S_ISLNK(mode)) return ENOENT;
    if (!S_ISDIR(mode)) return ENOTDIR;
    if (component.size() > NAME_MAX) return ENAMETOOLONG;
    way += "/" + component;
    const auto found = entries_.find(plain(way));
    if (found == entries_.end()) return ENOENT;
    mode = found->second;
  }
  const bool insists = !path.empty() && path.back() == '/';
  if (S_ISLNK(mode) && (links == Links::followed || insists)) return ENOENT;
  return insists && !S_ISDIR(mode) ? ENOTDIR : 0;
}

int MadeUpDisk::look(const std::string& path, Links links) const {
  mode_t mode = 0;
  const int error = examine(path, links, mode);
  if (error != 0 || links == Links::asTheyAre) return error;
  return S_ISDIR(mode) ? 0 : ENOTDIR;
}

int MadeUpDisk::stat(const char* path, struct stat* status) {
  return result(current->examine(path, Links::followed, status->st_mode));
}

int MadeUpDisk::lstat(const char* path, struct stat* status) {
  return result(current->examine(path, Links::asTheyAre, status->st_mode));
}

// A descriptor of something else stands for the one of the path.
int MadeUpDisk::open(const char* path, int flags, mode_t /*mode*/) {
  mode_t there = 0;
  const Links links = (flags & O_NOFOLLOW) != 0 ? Links::asTheyAre : Links::followed;
  const int error = current->examine(path, links, there);
  if (error != 0) return result(error);
  if ((flags & O_DIRECTORY) != 0 && !S_ISDIR(there)) return result(ENOTDIR);
  const Fault::Bypass bypass;
  const int fd = ::eventfd(0, EFD_CLOEXEC);
  current->opened_[fd] = path;
  return fd;
}

int MadeUpDisk::openAt(int fd, const char* name, int flags, mode_t mode) {
  return open((current->opened_.at(fd) + "/" + name).c_str(), flags, mode);
}

int MadeUpDisk::makeAt(int fd, const char* name, mode_t mode) {
  return result(current->makeDirectory(current->opened_.at(fd) + "/" + name, mode));
}

// The umask leaves the owner's bits alone, for fchmod to add the others.
int MadeUpDisk::makeDirectory(const std::string& path, mode_t mode) {
  mode_t there = 0;
  const int error = examine(path, Links::asTheyAre, there);
  if (error == 0) return EEXIST;
  if (error != ENOENT) return error;
  const int above = examine(path.substr(0, path.rfind('/') + 1), Links::followed, there);
  if (above == 0) add(path, mode & 0700);
  return above;
}

int MadeUpDisk::changeMode(int fd, mode_t mode) {
  mode_t& there = current->entries_.at(plain(current->opened_.at(fd)));
  there = (there & S_IFMT) | mode;
  return 0;
}

}  // namespace Zorbe::Test::Fuzz
