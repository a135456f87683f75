// SPDX-License-Identifier: MIT
//
// Any bytes as a path to make, among directories, files and links that are there, and as the
// name of a network namespace: what is made is what a naive walk expects, and no name leads to
// another place than the one where namespaces are kept.
#include "stress/fuzz/fuzzer.h"
#include "support/kernel/files.h"

#include <fcntl.h>
#include <mem/mkpath.h>
#include <nsutil/nsutil.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

namespace Zorbe::Test::Fuzz {
namespace {

using Kernel::Files;

std::vector<std::string> opened;

/// Has stat, lstat, mkdir and chmod work on a few files: the directories "/d" and "/d/e", the
/// file "/f" and "/n", a link that leads nowhere.
class FakeFiles : public Files {
 public:
  FakeFiles() {
    makeDirectories("/d/e");
    static_cast<void>(create("/f"));
    makeLink("/n");
  }

  void install() {
    current = this;
    Fault::divert("stat", callStat, "lstat", callLstat, "open", callOpen, "openat", callOpenat,
                  "mkdirat", callMkdirat, "fchmod", callFchmod);
  }

 private:
  static int result(int error) {
    if (error == 0) return 0;
    errno = error;
    return -1;
  }
  static int callStat(const char* path, struct stat* status) {
    return result(current->examine(path, Links::kFollowed, status->st_mode));
  }
  static int callLstat(const char* path, struct stat* status) {
    return result(current->examine(path, Links::kNotFollowed, status->st_mode));
  }
  // A descriptor of something else represents the one of the path.
  static int callOpen(const char* path, int flags, mode_t /*mode*/) {
    mode_t there = 0;
    const Links links = (flags & O_NOFOLLOW) != 0 ? Links::kNotFollowed : Links::kFollowed;
    const int error = current->examine(path, links, there);
    if (error != 0) return result(error);
    if ((flags & O_DIRECTORY) != 0 && !S_ISDIR(there)) return result(ENOTDIR);
    const Fault::Bypass bypass;
    const int fd = ::eventfd(0, EFD_CLOEXEC);
    current->opened_[fd] = path;
    return fd;
  }
  static int callOpenat(int fd, const char* name, int flags, mode_t mode) {
    return callOpen((current->opened_.at(fd) + "/" + name).c_str(), flags, mode);
  }
  // The umask leaves the owner's bits alone, for fchmod to add the others.
  static int callMkdirat(int fd, const char* name, mode_t mode) {
    return result(current->makeDirectory(current->opened_.at(fd) + "/" + name, mode & 0700));
  }
  static int callFchmod(int fd, mode_t mode) {
    return result(current->changeMode(current->opened_.at(fd), mode));
  }

  static FakeFiles* current;
  std::map<int, std::string> opened_;  // the latest of each number
};

FakeFiles* FakeFiles::current = nullptr;

/// What mkpath has to do, one step at a time: the errno that it has to leave, or 0.
int naiveMake(Files& files, const std::string& path, mode_t mode) {
  if (path.empty()) return ENOENT;
  if (path.find('\0') != std::string::npos) return EINVAL;
  std::string whole;
  for (const std::string& component : Files::components(path)) {
    whole += "/" + component;
    mode_t there = 0;
    const int error = files.examine(whole, Files::Links::kFollowed, there);
    if (error == 0 && S_ISDIR(there)) continue;
    if (error == 0) return ENOTDIR;
    if (error != ENOENT) return error;
    if (files.examine(whole, Files::Links::kNotFollowed, there) == 0) return ENOTDIR;
    EXPECT_EQ(files.makeDirectory(whole, mode), 0);
  }
  return 0;
}

void makePath(mode_t mode, const std::string& path) {
  FakeFiles expected;
  const int error = naiveMake(expected, path, mode);
  FakeFiles actual;
  actual.install();
  EXPECT_EQ(Mem::mkpath(path, mode), error == 0 ? 0 : -1);
  if (error != 0) EXPECT_EQ(errno, error);
  EXPECT_EQ(actual.modes(), expected.modes());
}

int refuse(const char* path, int /*flags*/, mode_t /*mode*/) {
  opened.emplace_back(path);
  errno = ENOENT;
  return -1;
}

void enter(const std::string& name) {
  const std::string text = name.c_str();
  const bool isName = Files::components("/" + text + "/") == std::vector<std::string>{text} &&
                      text != "." && text != ".." && text.size() <= NAME_MAX;
  std::vector<std::string> expected;
  if (isName) expected.push_back("/run/netns/" + text);
  if (text == "default") expected.emplace_back("/proc/1/ns/net");
  Fault::divert("open", refuse);
  opened.clear();
  EXPECT_EQ(setnsByName(text.c_str(), 0), -1);
  EXPECT_EQ(opened, expected);
  const bool tooLong = text.size() > NAME_MAX && text.find('/') == std::string::npos;
  EXPECT_EQ(errno, isName ? ENOENT : tooLong ? ENAMETOOLONG : EINVAL);
  const std::string trace = netnsGetTracebuffer();
  EXPECT_EQ(trace.rfind(isName ? "open() " : "setnsByName() ", 0), 0u);
}

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER(input) {
  using namespace Zorbe::Test::Fuzz;
  if (input.flag()) return enter(input.rest());
  const auto mode = static_cast<mode_t>(0700 | (input.number<uint16_t>() & 077));
  makePath(mode, input.rest());
}
