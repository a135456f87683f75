// SPDX-License-Identifier: MIT
#include "stress/fuzz/fake_proc.h"

#include "fault/fault.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>

namespace Zorbe::Test::Fuzz {
namespace {

const FakeProc* current = nullptr;

/// A directory that is being read: a real one's stream, so that it has to be closed, and the
/// names that come out of it.
struct Listing {
  std::vector<std::string> names;
  int endError = 0;
  size_t next = 0;
};

std::map<DIR*, Listing>& listings() {
  static std::map<DIR*, Listing> all;
  return all;
}

const FakeProcess* processOf(const std::string& path) {
  for (const FakeProcess& process : current->processes) {
    if (path.rfind("/proc/" + process.name + "/fd", 0) == 0) return &process;
  }
  return nullptr;
}

DIR* open(Listing listing, int error) {
  const Fault::Bypass bypass;
  if (error != 0) {
    errno = error;
    return nullptr;
  }
  DIR* const directory = ::opendir("/");
  listings()[directory] = std::move(listing);
  return directory;
}

DIR* openDirectory(const char* path) {
  Listing listing;
  if (path == std::string("/proc")) {
    for (const FakeProcess& process : current->processes) listing.names.push_back(process.name);
    listing.endError = current->endError;
    return open(std::move(listing), current->error);
  }
  const FakeProcess* const process = processOf(path);
  EXPECT_NE(process, nullptr) << path;
  if (process == nullptr) return nullptr;
  for (size_t fd = 0; fd < process->descriptors.size(); ++fd) {
    listing.names.push_back(std::to_string(fd));
  }
  return open(std::move(listing), process->error);
}

dirent* readDirectory(DIR* directory) {
  static dirent entry;
  Listing& listing = listings().at(directory);
  if (listing.next == listing.names.size()) {
    errno = listing.endError;
    return nullptr;
  }
  const std::string& name = listing.names[listing.next++];
  entry.d_name[name.copy(entry.d_name, sizeof entry.d_name - 1)] = '\0';
  return &entry;
}

int closeDirectory(DIR* directory) {
  const Fault::Bypass bypass;
  EXPECT_EQ(listings().erase(directory), 1u);
  return ::closedir(directory);
}

int examine(const char* path, struct stat* status) {
  const std::string whole = path;
  const FakeProcess* const process = processOf(whole);
  EXPECT_NE(process, nullptr) << path;
  const size_t fd = std::stoul(whole.substr(whole.rfind('/') + 1));
  const FakeDescriptor& descriptor = process->descriptors.at(fd);
  status->st_mode = descriptor.mode;
  status->st_ino = descriptor.inode;
  errno = descriptor.error;
  return descriptor.error == 0 ? 0 : -1;
}

ssize_t follow(const char* /*path*/, char* buffer, size_t size) {
  return static_cast<ssize_t>(current->executable.copy(buffer, size));
}

int errorOf(Input& input) {
  constexpr std::array<int, 8> kErrors = {0, 0, 0, 0, EACCES, ENOENT, EMFILE, EIO};
  return kErrors[input.below(kErrors.size())];
}

// One of those that matter, or one that begins as they do, or any.
std::string nameOf(Input& input) {
  constexpr std::array<const char*, 7> kUsual = {"self",       "4711", "0", "12x",
                                                 "4294967297", "net",  ""};
  std::string name = kUsual[input.below(kUsual.size())];
  if (name.empty() || input.below(4) == 0) name += input.fileName();
  return name;
}

}  // namespace

FakeProc::FakeProc(Input& input) {
  error = errorOf(input);
  endError = errorOf(input);
  for (unsigned count = input.below(4); count > 0; --count) add(input);
  executable = input.text();
}

void FakeProc::add(Input& input) {
  FakeProcess process{nameOf(input), errorOf(input), {}};
  for (unsigned count = input.below(4); count > 0; --count) {
    constexpr std::array<mode_t, 4> kModes = {S_IFSOCK, S_IFSOCK | 0777, S_IFREG | 0644, S_IFIFO};
    FakeDescriptor descriptor;
    descriptor.error = errorOf(input);
    descriptor.mode = kModes[input.below(kModes.size())];
    descriptor.inode = input.flag() ? input.number<uint64_t>() : input.below(10);
    process.descriptors.push_back(descriptor);
  }
  const auto same = [&](const FakeProcess& other) { return other.name == process.name; };
  if (std::none_of(processes.begin(), processes.end(), same)) processes.push_back(process);
}

void FakeProc::install() const {
  current = this;
  Fault::divert("opendir", openDirectory, "readdir", readDirectory, "closedir", closeDirectory,
                "stat", examine, "readlink", follow);
}

}  // namespace Zorbe::Test::Fuzz
