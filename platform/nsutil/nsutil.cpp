// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <nsutil/nsutil.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

const char* DEFAULT_NS = "default";

namespace {

constexpr const char* kInitialNamespace = "/proc/1/ns/net";

// Of fixed size: nothing here allocates, and nothing is thrown through C.
struct Path {
  char text[sizeof "/run/netns/" + NAME_MAX];
};

thread_local char tracebuffer[sizeof(Path) + 256] = "";

// Returns -1 with errno set to `error`.
int fail(const char* call, const char* object, int error) {
  char buffer[128];
  const char* const reason = strerror_r(error, buffer, sizeof buffer);
  static_cast<void>(
      std::snprintf(tracebuffer, sizeof tracebuffer, "%s() %s: %s", call, object, reason));
  errno = error;
  return -1;
}

// Whether the name is one component of a path, and not "." or "..": 0, or an errno.
int checkName(const char* name) {
  if (*name == '\0' || std::strchr(name, '/') != nullptr) return EINVAL;
  if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return EINVAL;
  return std::strlen(name) > NAME_MAX ? ENAMETOOLONG : 0;
}

int openNamespace(const char* path) {
  return open(path, O_RDONLY | O_CLOEXEC);
}

// The descriptor of the namespace, or -1 with errno set. `path` receives the file opened last.
int openByName(const char* name, Path& path) {
  static_cast<void>(std::snprintf(path.text, sizeof path.text, "/run/netns/%s", name));
  const int fd = openNamespace(path.text);
  if (fd >= 0 || errno != ENOENT || std::strcmp(name, "default") != 0) return fd;
  static_cast<void>(std::snprintf(path.text, sizeof path.text, "%s", kInitialNamespace));
  return openNamespace(path.text);
}

}  // namespace

int setnsByName(const char* name, int nstype) {
  if (name == nullptr) return fail("setnsByName", "(null)", EINVAL);
  const int wrong = checkName(name);
  if (wrong != 0) return fail("setnsByName", *name == '\0' ? "(empty)" : name, wrong);
  Path path;
  const int fd = openByName(name, path);
  if (fd < 0) return fail("open", path.text, errno);
  const int error = setns(fd, nstype) == 0 ? 0 : errno;
  static_cast<void>(close(fd));  // closed either way; the thread has moved or stayed already
  return error == 0 ? 0 : fail("setns", path.text, error);
}

const char* netnsGetTracebuffer(void) {
  return tracebuffer;
}
