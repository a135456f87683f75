// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <locale>

#include "foundation/log.h"
#include "sockets/dir_node.h"
#include "sockets/sockaddr.h"

namespace Zorbe::Util {

namespace {

using Brask::Platform::DebugHandler;

// The "Inode" column of a line of /proc/net/unix: the last field but one.
std::string inodeToken(const std::string& line) {
  const std::size_t last = line.rfind(' ');
  if (last == std::string::npos || last == 0) return {};
  const std::size_t before = line.rfind(' ', last - 1);
  const std::size_t begin = before == std::string::npos ? 0 : before + 1;
  return line.substr(begin, last - begin);
}

bool isSocketWithInode(DebugHandler& handler, const std::string& path, uint64_t inode) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    const int error = errno;
    ZORBE_LOG(handler, kNotable, "Util::readOwnerPid() stat failed: " << Log::reason(error));
    return false;
  }
  if (!S_ISSOCK(status.st_mode)) return false;
  ZORBE_LOG(handler, kStep,
            "Util::readOwnerPid() socket " << path << "'s inode is: " << status.st_ino);
  return status.st_ino == inode;
}

unsigned int pidOf(DebugHandler& handler, const std::string& entry) {
  const auto pid = entry == "self"
                       ? static_cast<unsigned int>(::getpid())
                       : static_cast<unsigned int>(std::strtoul(entry.c_str(), nullptr, 10));
  if (pid == 0) {
    ZORBE_LOG(
        handler, kNotable,
        "Util::readOwnerPid() could not convert  pid directory string \"" << entry << "\" to U32");
  }
  ZORBE_LOG(handler, kStep, "Util::readOwnerPid() found owner pid: " << pid);
  return pid;
}

// Searches the descriptors of the process that `entry` of /proc names.
unsigned int scanDescriptors(DebugHandler& handler, const std::string& entry, uint64_t inode) {
  const std::string directory = "/proc/" + entry + "/fd";
  DirNode descriptors(handler, nullptr, directory);
  unsigned int pid = 0;
  while (pid == 0) {
    const dirent* const descriptor = descriptors.readEntry();
    if (descriptor == nullptr) break;
    const std::string path = directory + "/" + descriptor->d_name;
    ZORBE_LOG(handler, kItem, "Util::readOwnerPid() reading entry " << path);
    if (isSocketWithInode(handler, path, inode)) pid = pidOf(handler, entry);
  }
  return pid;
}

unsigned int scanProcesses(DebugHandler& handler, uint64_t inode) {
  DirNode processes(handler, nullptr, "/proc");
  if (!processes.isOpen()) throw Brask::RuntimeException("Couldn't open /proc");
  unsigned int pid = 0;
  while (pid == 0) {
    const dirent* const process = processes.readEntry();
    if (process == nullptr) break;
    pid = scanDescriptors(handler, process->d_name, inode);
  }
  return pid;
}

unsigned int holderOfLine(DebugHandler& handler, const std::string& line,
                          const std::string& abstractName) {
  if (line.find(abstractName) == std::string::npos) return 0;
  const std::string token = inodeToken(line);
  const uint64_t inode = std::strtoull(token.c_str(), nullptr, 10);
  if (inode == 0) {
    ZORBE_LOG(handler, kNotable,
              "Util::readOwnerPid() Couldn't convert inode token \"" << token << "\" to U32.");
    return 0;
  }
  ZORBE_LOG(handler, kStep, "Util::readOwnerPid() sockInode = " << inode);
  return scanProcesses(handler, inode);
}

std::string procFile(long long pid, const char* file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}

}  // namespace

unsigned int readOwnerPid(DebugHandler& handler, const std::string& socketName,
                          std::string& owner) {
  const std::string abstractName = TableAddress(handler, socketName).abstractName();
  unsigned int pid = 0;
  {
    std::ifstream sockets;
    sockets.imbue(std::locale::classic());  // the client's global one may convert characters
    sockets.open("/proc/net/unix");
    std::string line;
    while (sockets.good() && pid == 0) {
      std::getline(sockets, line);  // the read that meets the end of the file leaves it empty
      ZORBE_LOG(handler, kStep, "Util::readOwnerPid() " << line);
      pid = holderOfLine(handler, line, abstractName);
    }
  }
  if (pid != 0) owner = readOwner(handler, pid);
  return pid;
}

std::string readOwner(DebugHandler& handler, unsigned int pid) {
  char target[4096];
  const ssize_t length = ::readlink(procFile(pid, "exe").c_str(), target, sizeof target - 1);
  if (length <= 0) return {};
  std::string owner(target, static_cast<std::size_t>(length));
  ZORBE_LOG(handler, kStep, "Util::readOwner() ownerStr: " << owner);
  return owner;
}

std::string readCmdline(DebugHandler& handler, int pid) {
  std::string cmdline = fileRead(handler, procFile(pid, "cmdline"), true);
  std::replace(cmdline.begin(), cmdline.end(), '\0', ' ');
  return cmdline;
}

}  // namespace Zorbe::Util
