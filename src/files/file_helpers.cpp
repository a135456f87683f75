// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>
#include <fstream>
#include <locale>

#include "foundation/log.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Util {

namespace {

constexpr mode_t kOpenToAll = 0666;
constexpr std::size_t kLargestRead = std::size_t{16} << 20;

constexpr const char* kTableFiles[] = {"slots", "conquer.1",  "conquer.2",          "buckets",
                                       "fenix", "last-owner", "corruption-detected"};

// Why `fd` must not be read, as an errno, or 0: what is not a regular file may block or never
// end. A directory is allowed, since the error of reading it is more precise.
int whyUnreadable(int fd) {
  struct stat status = {};
  if (::fstat(fd, &status) != 0) return errno;
  return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) ? 0 : EINVAL;
}

// Appends the rest of `fd`. Returns 0, or the errno of a read that failed; what was read before
// it stays.
int readAll(int fd, std::string& content) {
  char chunk[8192];
  for (;;) {
    const ssize_t size = ::read(fd, chunk, sizeof chunk);
    if (size == 0) return 0;
    if (size > 0) {
      content.append(chunk, static_cast<std::size_t>(size));
      if (content.size() <= kLargestRead) continue;
      content.clear();
      return EFBIG;
    }
    const int error = errno;
    if (error != EINTR) return error;
  }
}

class UmaskGuard {
 public:
  explicit UmaskGuard(mode_t mask) : old_(::umask(mask)) {}  // umask(2) cannot fail
  UmaskGuard(const UmaskGuard&) = delete;
  UmaskGuard& operator=(const UmaskGuard&) = delete;
  ~UmaskGuard() { ::umask(old_); }

 private:
  mode_t old_;
};

}  // namespace

std::string fileRead(Brask::Platform::DebugHandler& handler, const std::string& path,
                     bool reportOpenFailure) {
  std::string content;
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (file.get() < 0) {
    const int error = errno;
    if (reportOpenFailure) {
      ZORBE_LOG(handler, kStep,
                "Util::fileRead() unable to open file " << path << ": " << Log::reason(error));
    }
    return content;
  }
  const int unreadable = whyUnreadable(file.get());
  const int error = unreadable != 0 ? unreadable : readAll(file.get(), content);
  if (error == 0) {
    ZORBE_LOG(handler, kStep, "Util::fileRead() read " << path << " '" << content << "'");
  } else {
    ZORBE_LOG(handler, kNotable,
              "Util::fileRead() failed to read from " << path << " error: " << Log::reason(error));
  }
  return content;
}

void fileWrite(Brask::Platform::DebugHandler& handler, const std::string& path,
               const std::string& content, bool noThrow) {
  std::ofstream file;
  file.imbue(std::locale::classic());  // the client's global one may convert characters
  file.open(path, std::ios_base::out | std::ios_base::trunc);
  if (!file.is_open()) {
    const int error = errno;
    const auto words = [&](std::ostream& text) {
      text << "Util::fileWrite() unable to write " << path << " reason: " << Log::reason(error);
    };
    Log::write(handler, Log::kFailure, words);
    if (!noThrow) {
      Brask::RuntimeException exception(Log::text(words));
      errno = error;  // by it callers recognise a missing directory
      throw exception;
    }
  }
  file << content << '\n' << std::flush;
  file.close();
  if (::chmod(path.c_str(), kOpenToAll) != 0) {
    const int error = errno;
    ZORBE_LOG(handler, kNotable,
              "Util::fileWrite chmod() " << path << " error: " << Log::reason(error));
  }
}

bool touch(Brask::Platform::DebugHandler& handler, const std::string& path) {
  const UmaskGuard everyBit(0);
  const int fd = ::open(path.c_str(), O_RDONLY | O_CREAT | O_APPEND, kOpenToAll);
  if (fd < 0) {
    const int error = errno;
    ZORBE_LOG(handler, kFailure,
              "Util::touch() unable to open " << path << " reason: " << Log::reason(error));
    return false;
  }
  if (::close(fd) != 0) {
    const int error = errno;
    ZORBE_LOG(handler, kFailure,
              "Util::touch() unable to close fd:" << fd << " reason: " << Log::reason(error));
    return false;
  }
  return true;
}

uint32_t memSize(Brask::Platform::DebugHandler& handler, const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) == 0) return static_cast<uint32_t>(status.st_blocks) * 512;
  const int error = errno;
  ZORBE_LOG(handler, kFailure, "Util::memSize() " << path << " failed: " << Log::reason(error));
  return 0;
}

void writeCorruptionFile(Brask::Platform::DebugHandler& handler, const std::string& dir,
                         const std::string& reason) {
  const std::string text =
      ZORBE_TEXT("Pid " << ::getpid() << " thinks " << dir << " is corrupted: " << reason);
  try {
    fileWrite(handler, dir + "/corruption-detected", text, false);
  } catch (const Brask::RuntimeException&) {
    if (errno != ENOENT) throw;  // a directory that was removed needs no marker
  }
}

bool isZorbeFile(Brask::Platform::DebugHandler& handler, const std::string& name) {
  bool matched = false;
  for (const char* file : kTableFiles) {
    matched = name == file;
    if (matched) break;
  }
  ZORBE_LOG(handler, kStep, "Util::isZorbeFile() filename: " << name << " matched: " << matched);
  return matched;
}

}  // namespace Zorbe::Util
