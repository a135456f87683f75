// SPDX-License-Identifier: MIT
//
// Recursive creation of directories.
#include "broken.h"

#include <mem/mkpath.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>

using Zorbe::Conformance::Broken::breaks;
using Zorbe::Conformance::Broken::bundled;

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kPause{10};

int bundledMkpath(const std::string& path, unsigned mode) {
  return bundled<int(const std::string&, unsigned)>(
      "_ZN3Mem6mkpathERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEj")(path, mode);
}

int refuse(int error) {
  errno = error;
  return -1;
}

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

bool isLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

// Waits until something has happened, or no longer than kPause.
template <class Condition>
void awaitShortly(const Condition& condition) {
  const auto start = Clock::now();
  while (!condition() && Clock::now() - start < kPause) {
  }
}

// Fails where another thread makes a path at the same time.
int makeAlone(const std::string& path, unsigned mode) {
  static std::atomic<int> makers{0};
  const int others = makers++;
  if (others == 0) awaitShortly([] { return makers > 1; });
  const int result = others == 0 ? bundledMkpath(path, mode) : refuse(EEXIST);
  const int error = errno;
  --makers;
  errno = error;
  return result;
}

// Makes each directory once and pauses after it; somebody may remove it meanwhile.
int makeOnce(const std::string& path, unsigned mode) {
  for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string part = path.substr(0, end);
    if (!exists(part)) {
      if (::mkdir(part.c_str(), mode) != 0) return -1;
      awaitShortly([&part] { return !exists(part); });
    }
    if (end == std::string::npos) return 0;
  }
}

// What a path is refused for, 0 for none.
int refusalOf(const std::string& path) {
  const bool isMissingParent = !exists(path.substr(0, path.rfind('/')));
  if (isMissingParent && breaks("MkpathConformance.MakesEveryMissingDirectory")) return ENOENT;
  if (exists(path) && breaks("MkpathConformance.ADirectoryThatIsThereIsASuccess")) return EEXIST;
  if (path[0] != '/' && breaks("MkpathConformance.ARelativePathStartsAtTheWorkingDirectory")) {
    return ENOENT;
  }
  if (path.find("//") != std::string::npos && breaks("MkpathConformance.ExtraSlashesMeanNothing")) {
    return EINVAL;
  }
  if (isLink(path) && breaks("MkpathConformance.LinksAreFollowed")) return ENOTDIR;
  return 0;
}

int changed(int error) {
  if (error == ENOTDIR && breaks("MkpathConformance.AFileInTheWayIsNoDirectory")) return EEXIST;
  if (error == ENAMETOOLONG && breaks("MkpathConformance.OtherErrorsAreThoseOfMkdir")) return EIO;
  return error;
}

}  // namespace

int Mem::mkpath(const std::string& path, unsigned mode) {
  if (const int error = refusalOf(path)) return refuse(error);
  if (breaks("MkpathConformance.AllWhoMakeAPathAtOnceSucceed")) return makeAlone(path, mode);
  if (breaks("MkpathConformance.SucceedsWhileOthersRemoveThePath") ||
      breaks("MkpathConformance.GivesEachDirectoryExactlyTheModeAndLeavesTheUmask")) {
    return makeOnce(path, mode);
  }
  if (bundledMkpath(path, mode) != 0) return refuse(changed(errno));
  if (breaks("MkpathConformance.ADirectoryThatIsThereKeepsItsMode")) {
    return ::chmod(path.c_str(), mode);
  }
  return 0;
}
