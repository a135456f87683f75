// SPDX-License-Identifier: MIT
#include "support/kernel/fake_inotify.h"

#include "fault/fault.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <utility>

namespace Zorbe::Test::Kernel {
namespace {

constexpr size_t kUnlimited = SIZE_MAX;

FakeInotify* current = nullptr;
const int kWatchList = ::memfd_create("fdinfo", MFD_CLOEXEC);

int failing(int error) {
  errno = error;
  return -1;
}

}  // namespace

FakeInotify::FakeInotify() : inotify_(kUnlimited) {
  current = this;
  files_.attach(&inotify_);
  for (size_t i = 0; i < kDirectories; ++i) make(i);
  Fault::divert("inotify_init1", init, "inotify_add_watch", add, "inotify_rm_watch", removeWatch,
                "read", read, "fopen", openWatchList);
}

void FakeInotify::change(size_t directory, uint32_t event, const std::string& name) {
  inotify_.report(inodeOf(directory), event, name);
}

int FakeInotify::look(size_t directory, uint32_t mask) const {
  if (mask == 0) return -EINVAL;
  if (!files_.exists(pathOf(directory))) return -ENOENT;
  const int wd = inotify_.find(inodeOf(directory));
  return wd == 0 && isFull ? -ENOSPC : wd;
}

int FakeInotify::watch(size_t directory, uint32_t mask) {
  const int found = look(directory, mask);
  return found < 0 ? failing(-found) : inotify_.add(inodeOf(directory), mask);
}

std::optional<std::vector<InotifyEvent>> FakeInotify::takeRead() {
  if (reads_.empty()) return std::nullopt;
  std::vector<InotifyEvent> read = std::move(reads_.front());
  reads_.pop_front();
  return read;
}

std::set<int> FakeInotify::takeList() {
  EXPECT_FALSE(lists_.empty()) << "the watches were not listed";
  std::set<int> list = lists_.front();
  lists_.pop_front();
  return list;
}

// Readable at any time: there may be nothing to read.
int FakeInotify::init(int /*flags*/) {
  const Fault::Bypass bypass;
  return current->fd_ = ::eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);
}

int FakeInotify::add(int fd, const char* path, uint32_t mask) {
  EXPECT_EQ(fd, current->fd_);
  for (size_t i = 0; i < kDirectories; ++i) {
    if (path == pathOf(i)) return current->watch(i, mask);
  }
  return failing(ENOENT);
}

int FakeInotify::removeWatch(int /*fd*/, int wd) {
  return current->inotify_.remove(wd) ? 0 : failing(EINVAL);
}

ssize_t FakeInotify::read(int fd, void* buffer, size_t size) {
  if (fd != current->fd_) {
    const Fault::Bypass bypass;
    return ::read(fd, buffer, size);
  }
  std::vector<InotifyEvent>& events = current->reads_.emplace_back();
  if (current->inotify_.isEmpty()) return failing(EAGAIN);
  return static_cast<ssize_t>(
      current->inotify_.read(static_cast<char*>(buffer), size, current->mostAtOnce, events));
}

// /proc/self/fdinfo of the descriptor, whose numbers have base 16.
FILE* FakeInotify::openWatchList(const char* path, const char* mode) {
  const Fault::Bypass bypass;
  if (path != "/proc/self/fdinfo/" + std::to_string(current->fd_)) return ::fopen(path, mode);
  std::set<int>& list = current->lists_.emplace_back();
  std::ostringstream text;
  text << "pos:\t0\nflags:\t02004000\n" << std::hex;
  for (const auto& watch : current->watches()) {
    list.insert(watch.first);
    text << "inotify wd:" << watch.first << " ino:2 sdev:1 mask:" << watch.second << "\n";
  }
  const std::string all = text.str();
  EXPECT_EQ(::ftruncate(kWatchList, 0), 0);
  EXPECT_EQ(::pwrite(kWatchList, all.data(), all.size(), 0), static_cast<ssize_t>(all.size()));
  return ::fopen(("/proc/self/fd/" + std::to_string(kWatchList)).c_str(), mode);
}

}  // namespace Zorbe::Test::Kernel
