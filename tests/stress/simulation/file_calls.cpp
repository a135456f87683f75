// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>

#include "fault/fault.h"
#include "stress/simulation/system_calls.h"
#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {
namespace {

int enterNamespace(int /*fd*/, int /*type*/) {
  return 0;
}

// Files that a process has opened for writing: their content arrives when they are closed.
struct Written {
  std::string path;
  uint64_t inode;
};

std::map<FILE*, Written>& writtenFiles() {
  static std::map<FILE*, Written> files;
  return files;
}

// A real descriptor of a file with that content.
int anonymousFile(const std::string& content) {
  const Fault::Bypass bypass;
  const int fd = memfd_create("simulated", MFD_CLOEXEC);
  if (fd < 0) return -1;
  if (pwrite(fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size())) {
    return fd;
  }
  ::close(fd);
  return -1;
}

// Reads the file at the path. Returns 0 or an errno.
int contentAt(const World& world, const char* path, std::string& content) {
  const int error = world.files.read(path, content);
  return world.describeProcess(path, content) ? 0 : error;
}

// A file that is read, or the descriptor of the thread's namespace, which is the same for all.
int openPath(const char* path, int /*flags*/, mode_t /*mode*/) {
  Process* const process = Process::running();
  if (!enter(*process)) return -1;
  if (std::strcmp(path, "/proc/self/ns/net") == 0) return process->open(nullptr);
  std::string content;
  const int error = contentAt(process->world(), path, content);
  return error == 0 ? anonymousFile(content) : result(error);
}

FILE* openFile(const char* path, const char* mode) {
  Process* const process = Process::running();
  if (!enter(*process)) return nullptr;
  const bool writes = *mode == 'w';
  World& world = process->world();
  std::string content;
  const int error = writes ? world.files.create(path) : contentAt(world, path, content);
  if (error != 0) {
    errno = error;
    return nullptr;
  }
  const int fd = anonymousFile(content);
  FILE* const file = fd < 0 ? nullptr : fdopen(fd, mode);
  if (writes && file != nullptr) writtenFiles()[file] = {path, world.files.inode(path)};
  return file;
}

std::string contentOf(FILE* file) {
  char content[4096];
  const ssize_t size = pread(fileno(file), content, sizeof content, 0);
  return {content, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

int closeFile(FILE* file) {
  const auto found = writtenFiles().find(file);
  if (found != writtenFiles().end()) {
    Process& process = *Process::running();
    if (enter(process)) {
      const Written& written = found->second;
      process.world().files.close(written.path, written.inode, contentOf(file));
    }
    writtenFiles().erase(file);
  }
  const Fault::Bypass bypass;
  return std::fclose(file);
}

int examinePath(const char* path, struct stat* status) {
  Process* const process = Process::running();
  if (!enter(*process)) return -1;
  *status = {};
  status->st_ino = process->world().files.inode(path);
  return result(
      process->world().files.examine(path, Kernel::Files::Links::kFollowed, status->st_mode));
}

int changeMode(const char* path, mode_t mode) {
  Process* const process = Process::running();
  if (!enter(*process)) return -1;
  return result(process->world().files.changeMode(path, mode));
}

ssize_t readExecutable(const char* /*path*/, char* buffer, size_t size) {
  static constexpr char kExecutable[] = "/usr/bin/simulated";
  const std::size_t length = std::min(size, sizeof kExecutable - 1);
  std::memcpy(buffer, kExecutable, length);
  return static_cast<ssize_t>(length);
}

pid_t processId() {
  return Process::running()->pid();
}

}  // namespace

int (*divertFileCalls())(const char*, int, mode_t) {
  Fault::divert("chmod", changeMode, "fclose", closeFile, "fopen", openFile, "getpid", processId,
                "open", openPath, "readlink", readExecutable, "setns", enterNamespace, "stat",
                examinePath);
  Fault::divertOnlyWhile([] { return Process::running() != nullptr; });
  return openPath;
}

}  // namespace Zorbe::Test::Simulation
