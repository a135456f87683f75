// SPDX-License-Identifier: MIT
#include "stress/simulation/table/table_files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "fault/fault.h"
#include "stress/simulation/system_calls.h"

namespace Zorbe::Test::Simulation {

TableFiles* TableFiles::current_ = nullptr;

namespace {

std::string parentOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

std::string nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// Other files of the directory are the library's: small ones, whose content the model has.
bool isOfTable(const std::string& path) {
  if (path == kTableDirectory) return true;
  if (parentOf(path) != kTableDirectory) return false;
  const std::string name = nameOf(path);
  return name.rfind("slots", 0) == 0 || name.rfind("buckets", 0) == 0 ||
         name.rfind("conquer.", 0) == 0;
}

constexpr unsigned kFirstMappings = 3;  // slots, index, log

using Open = int(const char*, int, mode_t);
Open* openOther = nullptr;

}  // namespace

TableFiles::TableFiles(World& world, Stores stores)
    : world_(world), root_("/dev/shm/zorbe-simulated-XXXXXX"), stores_(stores) {
  if (::mkdtemp(root_.data()) == nullptr) {
    root_ = "/tmp/zorbe-simulated-XXXXXX";
    if (::mkdtemp(root_.data()) == nullptr) throw std::runtime_error("no directory for files");
  }
  current_ = this;
}

TableFiles::~TableFiles() {
  current_ = nullptr;
  for (const auto& [address, mapping] : writable_) ::close(mapping.fd);
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

// A directory that is made again is another one.
std::string TableFiles::realDirectory(const std::string& path) const {
  const uint64_t inode = world_.files.inode(path);
  if (inode == 0) return root_ + "/nowhere";
  std::string directory = root_ + "/" + std::to_string(inode);
  static_cast<void>(::mkdir(directory.c_str(), 0755));
  return directory;
}

std::string TableFiles::real(const std::string& path) const {
  if (!isOfTable(path)) return path;
  if (path == kTableDirectory) return realDirectory(path);
  return realDirectory(parentOf(path)) + "/" + nameOf(path);
}

int TableFiles::open(const char* path, int flags, mode_t mode) {
  const int fd = ::open(real(path).c_str(), flags, mode);
  if (fd >= 0 && (flags & O_CREAT) != 0) static_cast<void>(world_.files.link(path));
  return fd;
}

int TableFiles::link(const char* from, const char* to) {
  const int rc =
      ::linkat(AT_FDCWD, real(from).c_str(), AT_FDCWD, real(to).c_str(), AT_SYMLINK_FOLLOW);
  if (rc == 0) static_cast<void>(world_.files.link(to));
  return rc;
}

int TableFiles::rename(const char* from, const char* to) {
  const int rc = ::rename(real(from).c_str(), real(to).c_str());
  if (rc == 0) static_cast<void>(world_.files.rename(from, to));
  return rc;
}

int TableFiles::unlink(const char* path) {
  const int rc = ::unlink(real(path).c_str());
  if (rc == 0) static_cast<void>(world_.files.remove(path));
  return rc;
}

int TableFiles::lstat(const char* path, struct stat* status) const {
  return ::lstat(real(path).c_str(), status);
}

void TableFiles::forget(void* address) {
  const auto found = writable_.find(address);
  if (found == writable_.end()) return;
  ::close(found->second.fd);
  writable_.erase(found);
}

void* TableFiles::map(void* address, size_t length, int protection, int flags, int fd) {
  const bool isWritable = (protection & PROT_WRITE) != 0;
  if (isWritable && stores_ == Stores::kLost && ++mappings_ > kFirstMappings) {
    flags ^= MAP_SHARED ^ MAP_PRIVATE;
  }
  void* const mapped = ::mmap(address, length, protection, flags, fd, 0);
  if (mapped == MAP_FAILED || !isWritable) return mapped;
  writable_[mapped] = {Process::running()->pid(), length, ::fcntl(fd, F_DUPFD_CLOEXEC, 0)};
  return mapped;
}

void* TableFiles::remap(void* address, size_t oldLength, size_t length, int flags) {
  void* const moved = ::mremap(address, oldLength, length, flags);
  const auto found = writable_.find(address);
  if (moved == MAP_FAILED || found == writable_.end()) return moved;
  const Mapping mapping{found->second.pid, length, found->second.fd};
  writable_.erase(found);
  writable_[moved] = mapping;
  return moved;
}

int TableFiles::unmap(void* address, size_t length) {
  forget(address);
  return ::munmap(address, length);
}

// A dead process runs on, to free its memory.
void TableFiles::detach(const Process& process) {
  for (auto next = writable_.begin(); next != writable_.end();) {
    const auto [address, mapping] = *next++;
    if (mapping.pid != process.pid()) continue;
    const int flags = MAP_PRIVATE | MAP_FIXED | MAP_NORESERVE;
    const void* const there =
        ::mmap(address, mapping.length, PROT_READ | PROT_WRITE, flags, mapping.fd, 0);
    if (there == MAP_FAILED) throw std::runtime_error("cannot map privately");
    forget(address);
  }
}

// ---- What the calls are diverted to

namespace {

// The running process, when it lives and may go on.
TableFiles* entered() {
  return enter(*Process::running()) ? TableFiles::current() : nullptr;
}

int openFile(const char* path, int flags, mode_t mode) {
  const bool isBootId = std::strcmp(path, "/proc/sys/kernel/random/boot_id") == 0;
  const bool isReal = isBootId || std::strncmp(path, "/proc/self/fd/", 14) == 0;
  if (!isReal && !isOfTable(path)) return openOther(path, flags, mode);
  TableFiles* const files = entered();
  const Fault::Bypass bypass;
  return files == nullptr ? -1 : files->open(path, flags, mode);
}

int linkFile(int /*fromFd*/, const char* from, int /*toFd*/, const char* to, int /*flags*/) {
  TableFiles* const files = entered();
  const Fault::Bypass bypass;
  return files == nullptr ? -1 : files->link(from, to);
}

int renameFile(const char* from, const char* to) {
  TableFiles* const files = entered();
  const Fault::Bypass bypass;
  return files == nullptr ? -1 : files->rename(from, to);
}

int unlinkFile(const char* path) {
  TableFiles* const files = entered();
  const Fault::Bypass bypass;
  return files == nullptr ? -1 : files->unlink(path);
}

int examineLink(const char* path, struct stat* status) {
  const TableFiles* const files = entered();
  const Fault::Bypass bypass;
  return files == nullptr ? -1 : files->lstat(path, status);
}

int allocateRoom(int fd, off_t offset, off_t length) {
  const TableFiles* const files = entered();
  if (files == nullptr) return EIO;
  if (files->isFull()) return ENOSPC;
  const Fault::Bypass bypass;
  return ::posix_fallocate(fd, offset, length);
}

int controlDescriptor(int fd, int command, void* argument) {
  Process& process = *Process::running();
  if (!enter(process)) return -1;
  if (fd < Process::kFirstDescriptor) {
    const Fault::Bypass bypass;
    return ::fcntl(fd, command, argument);
  }
  const Kernel::SocketRef socket = process.socket(fd);
  if (!socket) return result(EBADF);
  const auto flags = static_cast<int>(reinterpret_cast<intptr_t>(argument));
  if (command == F_SETFL) socket->nonBlocking = (flags & O_NONBLOCK) != 0;
  return command == F_GETFL && socket->nonBlocking ? O_NONBLOCK : 0;
}

void* mapFile(void* address, size_t length, int protection, int flags, int fd, off_t /*offset*/) {
  if (fd < 0) {
    const Fault::Bypass bypass;
    return ::mmap(address, length, protection, flags, fd, 0);
  }
  TableFiles* const files = entered();
  const Fault::Bypass bypass;
  return files == nullptr ? MAP_FAILED : files->map(address, length, protection, flags, fd);
}

void* remapFile(void* address, size_t oldLength, size_t length, int flags) {
  TableFiles* const files = entered();
  const Fault::Bypass bypass;
  return files == nullptr ? MAP_FAILED : files->remap(address, oldLength, length, flags);
}

int unmapFile(void* address, size_t length) {
  const Fault::Bypass bypass;
  return TableFiles::current()->unmap(address, length);
}

ssize_t drawNumber(void* data, size_t size, unsigned /*flags*/) {
  const uint64_t number = Process::running()->world().random.next();
  std::memcpy(data, &number, std::min(size, sizeof number));
  return static_cast<ssize_t>(size);
}

}  // namespace

void TableFiles::divertCalls() {
  openOther = divertFileCalls();
  Fault::divert("fcntl", controlDescriptor, "getrandom", drawNumber, "linkat", linkFile, "lstat",
                examineLink, "mmap", mapFile, "mremap", remapFile, "open", openFile, "munmap",
                unmapFile, "posix_fallocate", allocateRoom, "rename", renameFile, "unlink",
                unlinkFile);
}

}  // namespace Zorbe::Test::Simulation
