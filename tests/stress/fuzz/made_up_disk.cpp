// SPDX-License-Identifier: MIT
#include "stress/fuzz/made_up_disk.h"

#include "fault/fault.h"

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
  Fault::divert("mkdir", mkdir);
  Fault::divert("chmod", chmod);
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

// The umask leaves the owner's bits alone, for chmod to add the others.
int MadeUpDisk::mkdir(const char* path, mode_t mode) {
  mode_t there = 0;
  const int error = current->examine(path, Links::asTheyAre, there);
  if (error == 0) return result(EEXIST);
  if (error != ENOENT) return result(error);
  const std::string parent = std::string(path).substr(0, std::string(path).rfind('/') + 1);
  const int above = current->examine(parent, Links::followed, there);
  if (above == 0) current->add(path, mode & 0700);
  return result(above);
}

int MadeUpDisk::chmod(const char* path, mode_t mode) {
  mode_t there = 0;
  const int error = current->examine(path, Links::followed, there);
  if (error == 0) current->entries_[plain(path)] = (there & S_IFMT) | mode;
  return result(error);
}

}  // namespace Zorbe::Test::Fuzz
