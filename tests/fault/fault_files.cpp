// SPDX-License-Identifier: MIT
//
// Files and directories, defined ahead of the C library's.
#pragma GCC visibility push(default)

#include "fault/intercept.h"
#include "support/sanitized.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace Zorbe::Test::Fault;

// The ...64 functions and types are the plain ones under another name; the functions, too,
// where off_t has to be asked for its 64 bits (intercept.h).
static_assert(sizeof(off_t) == sizeof(off64_t) && sizeof(struct stat) == sizeof(struct stat64) &&
              sizeof(dirent) == sizeof(dirent64));

namespace {

bool takesMode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

int openAny(const char* path, int flags, mode_t mode) {
  return runOnPath<int>(Call::openCall, path, flags, mode);
}

int openatAny(int fd, const char* path, int flags, mode_t mode) {
  return intercept<int>(Call::openatCall, {fd, path}, fd, path, flags, mode);
}

}  // namespace

extern "C" {

#define ZORBE_FAULT_MODE(flags, mode) \
  mode_t mode = 0;                    \
  if (takesMode(flags)) {             \
    va_list arguments;                \
    va_start(arguments, flags);       \
    mode = va_arg(arguments, mode_t); \
    va_end(arguments);                \
  }

int open(const char* path, int flags, ...) {
  ZORBE_FAULT_MODE(flags, mode)
  return openAny(path, flags, mode);
}

int openat(int fd, const char* path, int flags, ...) {
  ZORBE_FAULT_MODE(flags, mode)
  return openatAny(fd, path, flags, mode);
}

FILE* fopen(const char* __restrict path, const char* __restrict mode) {
  return runOnPath<FILE*>(Call::fopenCall, path, mode);
}

int fclose(FILE* file) {
  return intercept<int>(WhenFailing::kMakeAnyway, Call::fcloseCall, {fileno(file)}, file);
}

int stat(const char* __restrict path, struct stat* __restrict status) noexcept {
  return examine(Call::statCall, {-1, path}, status, path);
}

int lstat(const char* __restrict path, struct stat* __restrict status) noexcept {
  return examine(Call::lstatCall, {-1, path}, status, path);
}

int fstat(int fd, struct stat* status) noexcept {
  return examine(Call::fstatCall, {fd}, status, fd);
}

int chmod(const char* path, mode_t mode) noexcept {
  return intercept<int>(Call::chmodCall, {-1, path}, path, mode);
}

int fchmod(int fd, mode_t mode) noexcept {
  return intercept<int>(Call::fchmodCall, {fd}, fd, mode);
}

mode_t umask(mode_t mask) noexcept {
  return intercept<mode_t>(Call::umaskCall, {}, mask);
}

int mkdir(const char* path, mode_t mode) noexcept {
  return intercept<int>(Call::mkdirCall, {-1, path}, path, mode);
}

int mkdirat(int fd, const char* path, mode_t mode) noexcept {
  return intercept<int>(Call::mkdiratCall, {fd, path}, fd, path, mode);
}

int rename(const char* from, const char* to) noexcept {
  return intercept<int>(Call::renameCall, {-1, from}, from, to);
}

int linkat(int fromFd, const char* from, int toFd, const char* to, int flags) noexcept {
  return intercept<int>(Call::linkatCall, {-1, to}, fromFd, from, toFd, to, flags);
}

// Returns the error instead of setting errno.
int posix_fallocate(int fd, off_t offset, off_t length) {
  const auto rule = consult(Call::posix_fallocateCall, {fd});
  if (rule && rule->replaces) return rule->error;
  return nextFunction<int(int, off_t, off_t)>(Call::posix_fallocateCall)(fd, offset, length);
}

ssize_t getrandom(void* data, size_t size, unsigned flags) {
  return intercept<ssize_t>(Call::getrandomCall, {}, data, size, flags);
}

// The address sanitizer has an mmap() of its own, and calls these before it is ready for code
// that it instruments.
#if !defined(ZORBE_TEST_SANITIZED) && !defined(__SANITIZE_ADDRESS__)
// Those that fail return MAP_FAILED and not null.
void* mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) noexcept {
  const auto rule = consult(Call::mmapCall, {fd});
  if (rule && rule->replaces) return static_cast<void>(outcome<int>(*rule)), MAP_FAILED;
  return nextFunction<void*(void*, size_t, int, int, int, off_t)>(Call::mmapCall)(
      address, length, protection, flags, fd, offset);
}

void* mremap(void* address, size_t oldLength, size_t length, int flags, ...) noexcept {
  const auto rule = consult(Call::mremapCall, {});
  if (rule && rule->replaces) return static_cast<void>(outcome<int>(*rule)), MAP_FAILED;
  return nextFunction<void*(void*, size_t, size_t, int)>(Call::mremapCall)(address, oldLength,
                                                                           length, flags);
}

int munmap(void* address, size_t length) noexcept {
  return intercept<int>(Call::munmapCall, {}, address, length);
}

int getrlimit(__rlimit_resource_t resource, rlimit* limit) noexcept {
  return intercept<int>(Call::getrlimitCall, {}, resource, limit);
}
#endif

int rmdir(const char* path) noexcept {
  return intercept<int>(Call::rmdirCall, {-1, path}, path);
}

int unlink(const char* path) noexcept {
  return intercept<int>(Call::unlinkCall, {-1, path}, path);
}

char* getcwd(char* buffer, size_t size) noexcept {
  return intercept<char*>(Call::getcwdCall, {}, buffer, size);
}

ssize_t readlink(const char* __restrict path, char* __restrict buffer, size_t size) noexcept {
  return runOnPath<ssize_t>(Call::readlinkCall, path, buffer, size);
}

DIR* opendir(const char* path) {
  return runOnPath<DIR*>(Call::opendirCall, path);
}

dirent* readdir(DIR* directory) {
  return intercept<dirent*>(Call::readdirCall, {dirfd(directory)}, directory);
}

int closedir(DIR* directory) {
  return intercept<int>(WhenFailing::kMakeAnyway, Call::closedirCall, {dirfd(directory)},
                        directory);
}

char* strerror(int error) noexcept {
  return intercept<char*>(Call::strerrorCall, {}, error);
}

#ifndef _FILE_OFFSET_BITS

int open64(const char* path, int flags, ...) __attribute__((alias("open")));
int openat64(int fd, const char* path, int flags, ...) __attribute__((alias("openat")));

FILE* fopen64(const char* __restrict path, const char* __restrict mode) {
  return fopen(path, mode);
}

int stat64(const char* __restrict path, struct stat64* __restrict status) noexcept {
  return stat(path, reinterpret_cast<struct stat*>(status));
}

int lstat64(const char* __restrict path, struct stat64* __restrict status) noexcept {
  return lstat(path, reinterpret_cast<struct stat*>(status));
}

int fstat64(int fd, struct stat64* status) noexcept {
  return fstat(fd, reinterpret_cast<struct stat*>(status));
}

dirent64* readdir64(DIR* directory) {
  return reinterpret_cast<dirent64*>(readdir(directory));
}

#endif

#undef ZORBE_FAULT_MODE

}  // extern "C"
