// SPDX-License-Identifier: MIT
#include "host/processes.h"

#include <dirent.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

#include "host/spelling.h"

namespace Zorbe::Tool {

namespace {

using Brask::Platform::DebugHandler;

std::string procFile(pid_t pid, const char* file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}

struct Close {
  void operator()(DIR* directory) const { static_cast<void>(closedir(directory)); }
};
using Directory = std::unique_ptr<DIR, Close>;

// The inode of the socket that an entry of /proc/<pid>/fd refers to, 0 when it is no socket.
ino_t socketInode(DIR* directory, const char* entry) {
  char target[64];
  const ssize_t length = readlinkat(dirfd(directory), entry, target, sizeof target - 1);
  if (length <= 0) return 0;
  target[length] = '\0';
  constexpr const char* kPrefix = "socket:[";
  if (std::strncmp(target, kPrefix, std::strlen(kPrefix)) != 0) return 0;
  return std::strtoull(target + std::strlen(kPrefix), nullptr, 10);
}

// The path of a line of /proc/<pid>/maps; empty when the mapping is no file's, or not shared and
// writable. Line breaks in it are octal: see proc(5).
std::string sharedForWriting(const std::string& line) {
  const std::size_t permissions = line.find(' ') + 1;
  if (line.size() < permissions + 4) return {};
  if (line[permissions + 1] != 'w' || line[permissions + 3] != 's') return {};
  std::string path = line.substr(std::min(line.find('/'), line.size()));
  constexpr const char* kLineBreak = "\\012";
  for (std::size_t at = path.find(kLineBreak); at != std::string::npos;
       at = path.find(kLineBreak, at + 1)) {
    path.replace(at, std::strlen(kLineBreak), "\n");
  }
  return path;
}

// Processes end during the scan or belong to other users: unreadable ones are skipped.
std::set<ino_t> socketsOf(pid_t pid) {
  std::set<ino_t> sockets;
  const Directory descriptors(opendir(procFile(pid, "fd").c_str()));
  if (!descriptors) return sockets;
  while (const dirent* entry = readdir(descriptors.get())) {
    const ino_t inode = socketInode(descriptors.get(), entry->d_name);
    if (inode != 0) sockets.insert(inode);
  }
  return sockets;
}

}  // namespace

std::map<ino_t, std::vector<pid_t>> findHolders(const std::set<ino_t>& sockets) {
  std::map<ino_t, std::vector<pid_t>> holders;
  if (sockets.empty()) return holders;
  const Directory processes(opendir("/proc"));
  if (!processes) throw std::system_error(errno, std::generic_category(), "/proc");
  while (const dirent* entry = readdir(processes.get())) {
    const auto pid = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
    if (pid <= 0) continue;
    for (const ino_t inode : socketsOf(pid)) {
      if (sockets.count(inode) != 0) holders[inode].push_back(pid);
    }
  }
  for (auto& [inode, pids] : holders) std::sort(pids.begin(), pids.end());
  return holders;
}

std::string baseOfProcess(DebugHandler& handler, pid_t pid) {
  const std::string variables = '\0' + Util::fileRead(handler, procFile(pid, "environ"), false);
  const std::string wanted = std::string("\0SHMEM_ROOT=", 12);
  const std::size_t at = variables.find(wanted);
  if (at == std::string::npos) return {};
  std::string base = variables.c_str() + at + wanted.size();
  if (!base.empty() && base.front() == '/') return base;
  const std::string workingDirectory = realPath(procFile(pid, "cwd"));
  return workingDirectory.empty() ? "" : workingDirectory + "/" + base;
}

std::set<std::string> directoriesWrittenBy(DebugHandler& handler, pid_t pid) {
  std::set<std::string> directories;
  std::istringstream mappings(Util::fileRead(handler, procFile(pid, "maps"), false));
  for (std::string line; std::getline(mappings, line);) {
    const std::string path = sharedForWriting(line);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) continue;
    if (Util::isZorbeFile(handler, path.substr(slash + 1))) {
      directories.insert(path.substr(0, slash));
    }
  }
  return directories;
}

bool isStopped(pid_t pid) {
  std::ifstream file(procFile(pid, "stat"));
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::size_t state = text.rfind(") ");  // after the name, which may contain anything
  return state != std::string::npos && (text[state + 2] == 'T' || text[state + 2] == 't');
}

}  // namespace Zorbe::Tool
