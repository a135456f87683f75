// SPDX-License-Identifier: MIT
#include <zorbe/root_path.h>

#include <mem/mkpath.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <ostream>

#include "foundation/log.h"

namespace Zorbe {

namespace {

constexpr const char* kDefaultBase = "/var/shmem/zorbes";
constexpr const char* kChrootBase = "zorbes";
constexpr mode_t kOpenToAll = 0777;

struct Base {
  std::string path;
  bool chroot;
};

Base chooseBase() {
  if (const char* root = std::getenv("SHMEM_ROOT")) return {root, false};
  if (const char* suffix = std::getenv("NSPATH"))
    return {std::string(kDefaultBase) + suffix, false};
  if (std::getenv("Q9_CHROOT") != nullptr) return {kChrootBase, true};
  return {kDefaultBase, false};
}

std::string append(std::string path, const std::string& name) {
  if (name.empty()) return path;
  if (!path.empty() && name.front() != '/') path += '/';
  return path += name;
}

std::string makeAbsolute(Brask::Platform::DebugHandler& handler, const std::string& path) {
  if (!path.empty() && path.front() == '/') return path;
  char workingDirectory[4096];
  if (::getcwd(workingDirectory, sizeof workingDirectory) == nullptr) {
    const int error = errno;
    Log::fail<Brask::InvalidInitializeException>(
        handler, ZORBE_TEXT("RootPath::RootPath() gwtcwd() failed: " << Log::reason(error)));
  }
  return std::string(workingDirectory) + "/" + path;
}

// True when the directory is there and open to all. In chroot mode false when it could not
// be created; otherwise that throws.
bool createOpenToAll(Brask::Platform::DebugHandler& handler, const std::string& path, bool chroot) {
  if (Mem::mkpath(path, kOpenToAll) < 0) {
    const int error = errno;
    if (error != EEXIST) {
      const std::string text =
          ZORBE_TEXT("RootPath::RootPath() mkpath() error " << path << ": " << Log::reason(error));
      if (!chroot) Log::fail<Brask::InvalidInitializeException>(handler, text);
      ZORBE_LOG(handler, kFailure, text);
      std::cerr << text << "\nTry running from a writable directory.\n";
      return false;
    }
  }
  if (::chmod(path.c_str(), kOpenToAll) != 0) {
    const int error = errno;
    ZORBE_LOG(handler, kFailure,
              "RootPath::RootPath() chmod() error " << path << ": " << Log::reason(error));
  }
  return true;
}

}  // namespace

RootPath::RootPath(Brask::Platform::DebugHandler& debugHandler, const std::string& tableName,
                   bool createDirectory)
    : Debuggable(debugHandler), name(tableName), create(createDirectory) {
  const Base base = chooseBase();
  path = makeAbsolute(*handler, append(base.path, name));
  if (create && !createOpenToAll(*handler, path, base.chroot)) return;
  ZORBE_LOG(*handler, kMilestone, "RootPath::RootPath() rootpath is: " << path);
  initialized = true;
}

RootPath::~RootPath() = default;

bool RootPath::exists() const {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IFDIR) != 0;
}

std::string RootPath::fullPath(const std::string& file) const {
  return path.empty() ? file : path + "/" + file;
}

void RootPath::removeFile(const std::string& file) {
  const std::string full = fullPath(file);
  if (::unlink(full.c_str()) == 0) {
    ZORBE_LOG(*handler, kRoutine, "RootPath::removeFile() removed file " << full);
    return;
  }
  const int error = errno;
  if (error == ENOENT) return;
  ZORBE_LOG(*handler, kFailure,
            "RootPath::removeFile() unlink() error " << full << ": " << Log::reason(error));
}

void RootPath::cleanup() {
  if (::rmdir(path.c_str()) == 0) {
    ZORBE_LOG(*handler, kRoutine, "RootPath::cleanup() directory " << path);
    return;
  }
  const int error = errno;
  if (error == ENOENT) return;
  ZORBE_LOG(*handler, kFailure,
            "RootPath::cleanup() rmdir() error " << path << " reason: " << Log::reason(error));
}

std::ostream& operator<<(std::ostream& out, const RootPath& rootPath) {
  return out << rootPath.path;
}

}  // namespace Zorbe
