// SPDX-License-Identifier: MIT
//
// Any bytes as a path to make, among directories, files and links that are there, and as the
// name of a network namespace: what is made is what a naive walk expects, and no name leads to
// another place than the one where namespaces are kept.
#include "stress/fuzz/fuzzer.h"
#include "stress/fuzz/made_up_disk.h"

#include <mem/mkpath.h>
#include <nsutil/nsutil.h>

#include <cerrno>
#include <climits>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Test::Fuzz {
namespace {

std::vector<std::string> opened;

/// What mkpath has to do, one step at a time: the errno that it has to leave, or 0.
int naiveMake(MadeUpDisk& disk, const std::string& path, mode_t mode) {
  if (path.empty()) return ENOENT;
  if (path.find('\0') != std::string::npos) return EINVAL;
  std::string whole;
  for (const std::string& component : MadeUpDisk::components(path)) {
    whole += "/" + component;
    const int found = disk.look(whole, MadeUpDisk::Links::followed);
    if (found == 0) continue;
    if (found != ENOENT) return found;
    if (disk.look(whole, MadeUpDisk::Links::asTheyAre) == 0) return ENOTDIR;
    disk.add(whole, mode);
  }
  return 0;
}

void makePath(mode_t mode, const std::string& path) {
  MadeUpDisk expected;
  const int error = naiveMake(expected, path, mode);
  MadeUpDisk actual;
  actual.takePlace();
  EXPECT_EQ(Mem::mkpath(path, mode), error == 0 ? 0 : -1);
  if (error != 0) EXPECT_EQ(errno, error);
  EXPECT_EQ(actual.entries(), expected.entries());
}

int refuse(const char* path, int /*flags*/, mode_t /*mode*/) {
  opened.emplace_back(path);
  errno = ENOENT;
  return -1;
}

void enter(const std::string& name) {
  const std::string text = name.c_str();
  const bool isName = MadeUpDisk::components("/" + text + "/") == std::vector<std::string>{text} &&
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
  const std::string told = netnsGetTracebuffer();
  EXPECT_EQ(told.rfind(isName ? "open() " : "setnsByName() ", 0), 0u);
}

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER(input) {
  using namespace Zorbe::Test::Fuzz;
  if (input.flag()) return enter(input.rest());
  const auto mode = static_cast<mode_t>(0700 | (input.number<uint16_t>() & 077));
  makePath(mode, input.rest());
}
