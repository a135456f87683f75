// SPDX-License-Identifier: MIT
#include "host/processes.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>

namespace Zorbe::Tool {

namespace {

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

// Processes end during the scan or belong to other users: unreadable ones are skipped.
std::set<ino_t> socketsOf(pid_t pid) {
  std::set<ino_t> sockets;
  const Directory descriptors(opendir(("/proc/" + std::to_string(pid) + "/fd").c_str()));
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

bool isStopped(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::size_t state = text.rfind(") ");  // after the name, which may contain anything
  return state != std::string::npos && (text[state + 2] == 'T' || text[state + 2] == 't');
}

}  // namespace Zorbe::Tool
