// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>

#include "foundation/log.h"
#include "foundation/unique_fd.h"
#include "sockets/sockaddr.h"

namespace Zorbe::Util {

namespace {

using Brask::Platform::DebugHandler;

int openLockSocket(DebugHandler& handler) {
  const int fd = socket(handler, AF_UNIX, SOCK_SEQPACKET, 0);
  if (fd < 0) {
    const int error = errno;
    Log::fail<Brask::RuntimeException>(
        handler, ZORBE_TEXT("Util::acquireWriterLock() socket failed: " << Log::reason(error)));
  }
  const int on = 1;
  if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
    const int error = errno;  // the socket stays open on this path
    Log::fail<Brask::RuntimeException>(
        handler,
        ZORBE_TEXT("Util::acquireWriterLock() setsockopt() failed: " << Log::reason(error)));
  }
  return fd;
}

// Who the caller is, for the "last-owner" file.
std::string ownerNote(DebugHandler& handler) {
  const pid_t pid = ::getpid();
  const std::string cmdline = readCmdline(handler, pid);
  const std::string executable = readOwner(handler, static_cast<unsigned int>(pid));
  return executable + ":" + std::to_string(pid) + " cmdline: '" + cmdline + "'";
}

void leaveNote(DebugHandler& handler, const RootPath& rootPath, const std::string& note) {
  if (!rootPath.exists()) RootPath(handler, rootPath.name, true);
  fileWrite(handler, rootPath.fullPath("last-owner"), note, true);
}

// The pid in a note of `ownerNote`'s form.
std::string pidInNote(const std::string& note) {
  const std::string afterColon = note.substr(note.find(':') + 1);
  return afterColon.substr(0, afterColon.find(' '));
}

[[noreturn]] void refuse(DebugHandler& handler, const RootPath& rootPath,
                         const std::string& abstractName) {
  const std::string lastOwner = fileRead(handler, rootPath.fullPath("last-owner"), true);
  const std::string statPath = "/proc/" + pidInNote(lastOwner) + "/stat";
  const std::string stat = fileRead(handler, statPath, true);
  std::string owner;
  const unsigned int pid = readOwnerPid(handler, rootPath.path, owner);
  const std::string report =
      ZORBE_TEXT("Util::acquireWriterLock() duplicate writer detected "
                 << owner << ":" << pid << " " << rootPath << " socket:" << abstractName
                 << " lastOwner:" << lastOwner << " " << statPath << ": " << stat);
  ZORBE_LOG(handler, kFailure, report);
  throw DuplicateWriterException(report, pid, owner, lastOwner);
}

}  // namespace

int acquireWriterLock(DebugHandler& handler, const RootPath& rootPath) {
  UniqueFd fd(openLockSocket(handler));
  const TableAddress address(handler, rootPath.path);
  if (::bind(fd.get(), address.get(), address.length()) != 0) {
    static_cast<void>(::close(fd.release()));
    const int error = errno;  // of a close that fails, if it does
    if (error == EADDRINUSE) refuse(handler, rootPath, address.abstractName());
    Log::fail<Brask::RuntimeException>(
        handler, ZORBE_TEXT("Util::acquireWriterLock() bind() failed for "
                            << rootPath << " socket:" << address.abstractName()
                            << " error: " << Log::reason(error)));
  }
  const std::string note = ownerNote(handler);
  leaveNote(handler, rootPath, note);
  ZORBE_LOG(handler, kMilestone,
            "Util::acquireWriterLock() "
                << note << " successfully acquired writer-lock: " << address.abstractName());
  return fd.release();
}

int releaseWriterLock(DebugHandler& handler, int fd) {
  ZORBE_LOG(handler, kMilestone, "Util::releaseWriterLock() successfully released writer-lock");
  return ::close(fd);
}

}  // namespace Zorbe::Util
