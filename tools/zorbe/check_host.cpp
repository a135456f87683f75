// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <nsutil/nsutil.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "finding.h"
#include "text.h"

namespace Zorbe::Tool {

namespace {

constexpr unsigned openToAll = 0777;
constexpr unsigned long fewInstances = 128;  // the kernel's own default

bool mayMakeEntries(const std::string& directory) {
  return faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

// The directory above `path` in which the first missing one would be made.
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
  if (mayMakeEntries(above)) {
    findings.push_back({Severity::note, "base",
                        path + " does not exist yet; the first writer or reader makes it", ""});
    return;
  }
  findings.push_back({Severity::problem, "base",
                      path + " does not exist, and you may not make it in " + word(above),
                      "as root: mkdir -p " + command + " && chmod 0777 " + command});
}

// Makes the check as the library would: by using one. 0 or an errno.
int tryInotify(const std::string& path) {
  const int fd = inotify_init1(IN_CLOEXEC);
  if (fd < 0) return errno;
  const int error = inotify_add_watch(fd, path.c_str(), IN_DELETE) < 0 ? errno : 0;
  (void)close(fd);
  return error;
}

unsigned long inotifyLimit(const std::string& name) {
  std::ifstream file("/proc/sys/fs/inotify/" + name);
  unsigned long value = 0;
  return file >> value ? value : 0;
}

void raise(const std::string& limit, const std::string& what, unsigned long to,
           Findings& findings) {
  findings.push_back({Severity::problem, "inotify", what,
                      "as root: sysctl fs.inotify." + limit + "=" + std::to_string(to)});
}

}  // namespace

void checkBase(const Table& base, Findings& findings) {
  const Listing& directory = base.directory;
  const std::string path = word(base.path);
  if (!directory.present && directory.error == 0) return checkMissingBase(base, findings);
  if (!directory.present || directory.error != 0) {
    findings.push_back({Severity::problem, "base",
                        path + " cannot be read: " + reason(directory.error),
                        "make it a directory that every user may enter, read and write"});
  } else if (!mayMakeEntries(base.path)) {
    findings.push_back({Severity::problem, "base", "you may not make tables in " + path,
                        "as its owner: chmod 0777 " + shellWord(base.path)});
  } else if (directory.mode != openToAll) {
    findings.push_back(
        {Severity::note, "base",
         path + " has mode " + octal(directory.mode) + ": not every user can make tables there",
         "if they shall: chmod 0777 " + shellWord(base.path)});
  } else {
    findings.push_back({Severity::ok, "base", path + " is open to every user", ""});
  }
}

void checkNamespace(const std::string& trouble, Findings& findings) {
  const std::string name = printable(DEFAULT_NS);
  if (trouble.empty()) {
    findings.push_back({Severity::ok, "namespace", "network namespace " + name + " entered", ""});
    return;
  }
  // A namespace of that name was set up, so others' sockets are in it.
  const bool named = access(("/run/netns/" + std::string(DEFAULT_NS)).c_str(), F_OK) == 0;
  findings.push_back(
      {named ? Severity::problem : Severity::note, "namespace",
       "network namespace " + name + " not entered: " + printable(trouble) +
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
    raise("max_user_instances", "no inotify instance is left for you: each process takes one",
          2 * instances, findings);
  } else if (error == ENOSPC) {
    raise("max_user_watches", "no inotify watch is left for you", 2 * watches + needed, findings);
  } else if (error != 0) {
    findings.push_back({Severity::problem, "inotify", "does not work: " + reason(error),
                        "use a kernel with inotify"});
  } else if (watches < needed) {
    raise("max_user_watches",
          "a process that watches all tables needs " + std::to_string(needed) + " watches of " +
              std::to_string(watches),
          2 * needed, findings);
  } else if (instances < fewInstances) {
    raise("max_user_instances",
          "only " + std::to_string(instances) + " processes of a user can watch directories",
          fewInstances, findings);
  } else {
    findings.push_back({Severity::ok, "inotify",
                        std::to_string(instances) + " instances, " + std::to_string(watches) +
                            " watches for each user",
                        ""});
  }
}

}  // namespace Zorbe::Tool
