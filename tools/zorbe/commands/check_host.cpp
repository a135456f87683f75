// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <linux/magic.h>
#include <nsutil/nsutil.h>
#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "commands/finding.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

constexpr unsigned kOpenToAll = 0777;
constexpr unsigned long kDefaultInstances = 128;  // the kernel's own default

bool mayCreateEntries(const std::string& directory) {
  return faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

// The nearest existing directory above `path`.
std::string nearestExisting(std::string path) {
  while (path.size() > 1 && access(path.c_str(), F_OK) != 0) {
    const std::size_t slash = path.find_last_of('/');
    path = slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
  }
  return path;
}

void checkMissingBase(const Table& base, Findings& findings) {
  const std::string path = word(base.path);
  const std::string command = shellWord(base.path);
  const std::string above = nearestExisting(base.path);
  if (mayCreateEntries(above)) {
    findings.push_back({Severity::kNote, "base",
                        path + " does not exist yet; the first writer or reader creates it", ""});
    return;
  }
  findings.push_back({Severity::kProblem, "base",
                      path + " does not exist, and you may not create it in " + word(above),
                      "as root: mkdir -p " + command + " && chmod 0777 " + command});
}

// Uses one, as the library would. Returns 0 or an errno.
int tryInotify(const std::string& path) {
  const int fd = inotify_init1(IN_CLOEXEC);
  if (fd < 0) return errno;
  const int error = inotify_add_watch(fd, path.c_str(), IN_DELETE) < 0 ? errno : 0;
  static_cast<void>(close(fd));
  return error;
}

unsigned long inotifyLimit(const std::string& name) {
  std::ifstream file("/proc/sys/fs/inotify/" + name);
  unsigned long value = 0;
  return file >> value ? value : 0;
}

void raise(const std::string& limit, const std::string& what, unsigned long to,
           Findings& findings) {
  findings.push_back({Severity::kProblem, "inotify", what,
                      "as root: sysctl fs.inotify." + limit + "=" + std::to_string(to)});
}

}  // namespace

void checkBase(const Table& base, Findings& findings) {
  const Listing& directory = base.directory;
  const std::string path = word(base.path);
  if (!directory.present && directory.error == 0) return checkMissingBase(base, findings);
  if (!directory.present || directory.error != 0) {
    findings.push_back({Severity::kProblem, "base",
                        path + " cannot be read: " + reason(directory.error),
                        "make it a directory that every user may enter, read and write"});
  } else if (!mayCreateEntries(base.path)) {
    findings.push_back({Severity::kProblem, "base", "you may not create tables in " + path,
                        "as its owner: chmod 0777 " + shellWord(base.path)});
  } else if (directory.mode != kOpenToAll) {
    findings.push_back(
        {Severity::kNote, "base",
         path + " has mode " + octal(directory.mode) + ": not every user can create tables there",
         "to allow it: chmod 0777 " + shellWord(base.path)});
  } else {
    findings.push_back({Severity::kOk, "base", path + " is open to every user", ""});
  }
}

// Not in memory: the kernel writes changed pages to the disk by and by, and a process that changes
// one meanwhile waits for the disk.
void checkStorage(const Table& base, Findings& findings) {
  struct statfs status = {};
  if (!base.directory.present || statfs(base.path.c_str(), &status) != 0) return;
  const auto type = static_cast<unsigned long>(status.f_type) & 0xffffffffUL;
  const std::string path = word(base.path);
  if (type == TMPFS_MAGIC || type == RAMFS_MAGIC || type == HUGETLBFS_MAGIC) {
    findings.push_back({Severity::kOk, "storage", path + " is in memory", ""});
    return;
  }
  findings.push_back({Severity::kNote, "storage",
                      path + " is not on tmpfs: when the kernel writes changed pages to the disk, "
                             "a writer that changes them again stalls, and its readers with it",
                      "as root, while no process uses the tables: mount -t tmpfs -o mode=0777 "
                      "tmpfs " +
                          shellWord(base.path)});
}

void checkNamespace(const std::string& error, Findings& findings) {
  const std::string name = printable(DEFAULT_NS);
  if (error.empty()) {
    findings.push_back({Severity::kOk, "namespace", "network namespace " + name + " entered", ""});
    return;
  }
  // A namespace of that name exists, so the sockets of other processes are in it.
  const bool named = access(("/run/netns/" + std::string(DEFAULT_NS)).c_str(), F_OK) == 0;
  findings.push_back(
      {named ? Severity::kProblem : Severity::kNote, "namespace",
       "network namespace " + name + " not entered: " + printable(error) +
           "; sockets are opened in the caller's own",
       "start writers and readers of a table in one network namespace, or give them all the "
       "right to enter it (CAP_SYS_ADMIN)"});
}

void checkInotify(std::size_t tables, Findings& findings) {
  const unsigned long watches = inotifyLimit("max_user_watches");
  const unsigned long instances = inotifyLimit("max_user_instances");
  const unsigned long needed = 2 * tables;  // a root directory and its parent
  const int error = tryInotify("/");
  if (error == EMFILE) {
    raise("max_user_instances", "you have no inotify instance left: each process needs one",
          2 * instances, findings);
  } else if (error == ENOSPC) {
    raise("max_user_watches", "you have no inotify watch left", 2 * watches + needed, findings);
  } else if (error != 0) {
    findings.push_back({Severity::kProblem, "inotify", "does not work: " + reason(error),
                        "use a kernel with inotify"});
  } else if (watches < needed) {
    raise("max_user_watches",
          "a process that watches all tables needs " + std::to_string(needed) + " watches of " +
              std::to_string(watches),
          2 * needed, findings);
  } else if (instances < kDefaultInstances) {
    raise("max_user_instances",
          "only " + std::to_string(instances) + " processes of a user can watch directories",
          kDefaultInstances, findings);
  } else {
    findings.push_back({Severity::kOk, "inotify",
                        std::to_string(instances) + " instances, " + std::to_string(watches) +
                            " watches for each user",
                        ""});
  }
}

}  // namespace Zorbe::Tool
