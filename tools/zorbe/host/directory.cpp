// SPDX-License-Identifier: MIT
#include "host/directory.h"

#include <dirent.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace Zorbe::Tool {

namespace {

bool examine(const std::string& path, Listing& listing) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    listing.error = errno == ENOENT ? 0 : errno;
    return false;
  }
  listing.link = S_ISLNK(status.st_mode);
  if (stat(path.c_str(), &status) != 0) {
    listing.error = errno;
    return false;
  }
  listing.present = S_ISDIR(status.st_mode);
  listing.mode = status.st_mode & 07777U;
  if (listing.present) listing.identity = Identity(status.st_dev, status.st_ino);
  if (!listing.present) listing.error = ENOTDIR;
  return listing.present;
}

void addEntry(Brask::Platform::DebugHandler& handler, const std::string& path,
              const std::string& name, Listing& listing) {
  Entry entry{name, Util::isZorbeFile(handler, name)};
  if (lstat((path + "/" + name).c_str(), &entry.status) != 0) {
    if (errno == ENOENT) return;  // removed since the directory was read
    listing.error = errno;
  }
  listing.entries.push_back(entry);
}

}  // namespace

const char* Entry::kind() const {
  if (S_ISREG(status.st_mode)) return "file";
  if (S_ISDIR(status.st_mode)) return "directory";
  if (S_ISLNK(status.st_mode)) return "symbolic link";
  if (S_ISFIFO(status.st_mode)) return "fifo";
  if (S_ISSOCK(status.st_mode)) return "socket";
  return "special file";
}

const Entry* Listing::find(const std::string& name) const {
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [&](const Entry& entry) { return entry.name == name; });
  return found == entries.end() ? nullptr : &*found;
}

std::optional<Identity> identityOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return std::nullopt;
  return Identity(status.st_dev, status.st_ino);
}

int whyUnsearchable(const std::string& path) {
  struct stat status = {};
  const bool found = stat((path + "/.").c_str(), &status) == 0;
  return found || errno == ENOENT ? 0 : errno;
}

Listing readListing(Brask::Platform::DebugHandler& handler, const std::string& path) {
  Listing listing;
  if (!examine(path, listing)) return listing;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
  if (!directory) {
    listing.error = errno;
    return listing;
  }
  for (errno = 0; const dirent* entry = readdir(directory.get()); errno = 0) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") addEntry(handler, path, name, listing);
  }
  if (errno != 0) listing.error = errno;
  std::sort(listing.entries.begin(), listing.entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return listing;
}

}  // namespace Zorbe::Tool
