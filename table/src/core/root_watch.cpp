// SPDX-License-Identifier: MIT
#include "core/root_watch.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include "memory/layout.h"

namespace Zorbe::Table {

namespace {

constexpr uint32_t kEndMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr uint32_t kParentMask = kEndMask | IN_CREATE | IN_MOVED_TO;
constexpr uint32_t kTableMask =
    kParentMask | IN_DELETE | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_ATTRIB;

// Directories that may appear between two looks.
constexpr int kAttempts = 16;

}  // namespace

RootWatch::RootWatch(const std::string& path, Owner& owner)
    : path_(path), owner_(owner), control_(Brask::Platform::getInotifyControl(this)) {
  while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
}

bool RootWatch::isDirectory(const std::string& path, Identity& identity) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
  identity = {status.st_dev, status.st_ino};
  return true;
}

std::string RootWatch::nearest(Identity& identity) const {
  std::string path = path_;
  while (!isDirectory(path, identity) && path.size() > 1) {
    const size_t slash = path.rfind('/');
    path.resize(slash == 0 ? 1 : slash);
  }
  return path;
}

// Looks again after each addWatch(), for a directory that was made before the watch began. The path
// alone does not identify a directory: the kernel reports the end of a removed one only when none
// of its files is open or mapped, and by then another one may have taken its place.
void RootWatch::set() {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Identity identity;
    const std::string found = nearest(identity);
    if (watching_ && found == watched_ && identity == identity_) return;
    watched_ = found;
    identity_ = identity;
    const size_t begin = found.size() == 1 ? 1 : found.size() + 1;
    next_ = found == path_ ? "" : path_.substr(begin, path_.find('/', begin) - begin);
    watching_ = true;
    control_->addWatch(found, next_.empty() ? kTableMask : kParentMask);
  }
}

// The files whose change means another table, or another writer.
bool RootWatch::concerns(const std::string& name) const {
  if (!next_.empty()) return name == next_;
  return name == kSlotsFile || name == "last-owner" || name == watched_;
}

void RootWatch::inotifyError(const std::string&) {
  watching_ = false;
  owner_.rootChanged();
}

void RootWatch::inotifyDeleted() {
  watching_ = false;
  owner_.rootChanged();
}

void RootWatch::inotifyChanged(const std::string& what) {
  if (concerns(what)) owner_.rootChanged();
}

}  // namespace Zorbe::Table
