// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <nsutil/nsutil.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>

#include "foundation/log.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Util {

namespace {

constexpr const char* kOwnNamespace = "/proc/self/ns/net";

int openLocalSocket(Brask::Platform::DebugHandler& handler, int domain, int type, int protocol) {
  UniqueFd sd(::socket(domain, type, protocol));
  if (sd.get() >= 0) {
    ZORBE_LOG_NOEXCEPT(handler, kMilestone,
                       "Util::socket() success opening local socket, sd:" << sd.get());
  }
  return sd.release();
}

// Sets `entered` to where the thread is before the handler can throw.
void enterDefaultNamespace(Brask::Platform::DebugHandler& handler, bool& entered) {
  entered = setnsByName(DEFAULT_NS, CLONE_NEWNET) == 0;
  if (entered) {
    ZORBE_LOG_NOEXCEPT(handler, kMilestone,
                       "Util::socket() setnsByName() to " << DEFAULT_NS << " success");
  } else {
    ZORBE_LOG_NOEXCEPT(handler, kMilestone,
                       "Util::socket() setnsByName() to "
                           << DEFAULT_NS << " failure: " << Log::CString{netnsGetTracebuffer()});
  }
}

int openDefaultSocket(Brask::Platform::DebugHandler& handler, int domain, int type, int protocol,
                      bool& entered) {
  ZORBE_LOG_NOEXCEPT(handler, kMilestone, "Util::socket() success opening " << kOwnNamespace);
  enterDefaultNamespace(handler, entered);
  UniqueFd sd(::socket(domain, type, protocol));
  const int error = errno;  // logged on success, too: the value at that time
  ZORBE_LOG_NOEXCEPT(handler, kMilestone,
                     "Util::socket() " << (sd.get() < 0 ? "failed" : "success") << " opening "
                                       << (entered ? DEFAULT_NS : "local")
                                       << " socket: " << Log::reason(error));
  errno = error;
  return sd.release();
}

void returnTo(int localNsFd, bool entered) {
  if (entered && ::setns(localNsFd, CLONE_NEWNET) != 0) {
    throw Brask::RuntimeException("Util::socket() failed to switch back to caller's namespace");
  }
  if (::close(localNsFd) != 0) {
    throw Brask::RuntimeException("Util::socket() failed to close( localNsFd )");
  }
}

}  // namespace

int socket(Brask::Platform::DebugHandler& handler, int domain, int type, int protocol) {
  const int localNsFd = ::open(kOwnNamespace, O_RDONLY | O_CLOEXEC);
  if (localNsFd < 0) {
    const int error = errno;
    if (error != EACCES && error != ENOENT) return -1;
    ZORBE_LOG(
        handler, kMilestone,
        "Util::socket() failed to open " << kOwnNamespace << " reason: " << Log::reason(error));
    return openLocalSocket(handler, domain, type, protocol);
  }
  bool entered = false;
  int sd = -1;
  try {
    sd = openDefaultSocket(handler, domain, type, protocol, entered);
  } catch (...) {  // from the handler; a failure to return is more important and replaces it
    returnTo(localNsFd, entered);
    throw;
  }
  const int error = errno;
  returnTo(localNsFd, entered);
  if (sd < 0) errno = error;
  return sd;
}

}  // namespace Zorbe::Util
