// SPDX-License-Identifier: MIT
#include "stress/fuzz/made_up_inotify.h"

#include "fault/fault.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <utility>

namespace Zorbe::Test::Fuzz {
namespace {

MadeUpInotify* current = nullptr;
const int watchList = ::memfd_create("fdinfo", MFD_CLOEXEC);

int failing(int error) {
  errno = error;
  return -1;
}

}  // namespace

MadeUpInotify::MadeUpInotify() {
  current = this;
  there_.fill(true);
  Fault::divert("inotify_init1", init);
  Fault::divert("inotify_add_watch", add);
  Fault::divert("inotify_rm_watch", removeWatch);
  Fault::divert("read", read);
  Fault::divert("fopen", tellWatches);
}

void MadeUpInotify::change(size_t directory, uint32_t bit, const std::string& name) {
  const auto found = watches_.find(watchOf_[directory]);
  if (found != watches_.end() && (found->second & bit) != 0) queue({found->first, bit, name});
}

void MadeUpInotify::end(size_t directory, uint32_t why) {
  if (watchOf_[directory] == 0) return;
  if (why != 0) queue({watchOf_[directory], why, ""});
  queue({watchOf_[directory], IN_IGNORED, ""});
  watches_.erase(std::exchange(watchOf_[directory], 0));
}

void MadeUpInotify::remove(size_t directory) {
  change(directory, IN_DELETE_SELF, "");
  end(directory, 0);
  there_[directory] = false;
}

void MadeUpInotify::unmount(size_t directory) {
  end(directory, IN_UNMOUNT);
  there_[directory] = false;
}

// The old one is still watched, under a path that leads there no more.
void MadeUpInotify::replace(size_t directory) {
  change(directory, IN_MOVE_SELF, "");
  watchOf_[directory] = 0;
}

void MadeUpInotify::overflow() {
  queue_.clear();
  queue({-1, IN_Q_OVERFLOW, ""});
}

int MadeUpInotify::look(size_t directory, uint32_t mask) const {
  if (mask == 0) return -EINVAL;
  if (!there_[directory]) return -ENOENT;
  if (watchOf_[directory] == 0 && full) return -ENOSPC;
  return watchOf_[directory];
}

int MadeUpInotify::watch(size_t directory, uint32_t mask) {
  const int found = look(directory, mask);
  if (found < 0) return failing(-found);
  const int wd = found != 0 ? found : ++lastWatch_;
  watchOf_[directory] = wd;
  uint32_t& events = watches_[wd];
  events = ((mask & IN_MASK_ADD) != 0 ? events : 0) | (mask & IN_ALL_EVENTS);
  return wd;
}

std::deque<Event> MadeUpInotify::takeRead() {
  return std::exchange(read_, {});
}

size_t MadeUpInotify::fill(char* buffer, size_t size) {
  size_t used = 0;
  for (size_t count = 0; count < atOnce && !queue_.empty(); ++count) {
    const Event& event = queue_.front();
    inotify_event header = {};
    header.wd = event.wd;
    header.mask = event.mask;
    const size_t block = sizeof header;
    if (!event.name.empty())
      header.len = static_cast<uint32_t>((event.name.size() / block + 1) * block);
    if (used + block + header.len > size) break;
    std::memcpy(buffer + used, &header, block);
    std::memset(buffer + used + block, 0, header.len);
    event.name.copy(buffer + used + block, event.name.size());
    used += block + header.len;
    read_.push_back(event);
    queue_.pop_front();
  }
  return used;
}

// Readable at any time: there may be nothing to read.
int MadeUpInotify::init(int /*flags*/) {
  const Fault::Bypass bypass;
  return current->fd_ = ::eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);
}

int MadeUpInotify::add(int fd, const char* path, uint32_t mask) {
  EXPECT_EQ(fd, current->fd_);
  for (size_t i = 0; i < directories; ++i) {
    if (path == pathOf(i)) return current->watch(i, mask);
  }
  return failing(ENOENT);
}

int MadeUpInotify::removeWatch(int /*fd*/, int wd) {
  if (current->watches_.erase(wd) == 0) return failing(EINVAL);
  for (int& watch : current->watchOf_) watch = watch == wd ? 0 : watch;
  current->queue({wd, IN_IGNORED, ""});
  return 0;
}

ssize_t MadeUpInotify::read(int fd, void* buffer, size_t size) {
  if (fd != current->fd_) {
    const Fault::Bypass bypass;
    return ::read(fd, buffer, size);
  }
  if (current->queue_.empty()) return failing(EAGAIN);
  return static_cast<ssize_t>(current->fill(static_cast<char*>(buffer), size));
}

// /proc/self/fdinfo of the descriptor, which tells in base 16.
FILE* MadeUpInotify::tellWatches(const char* path, const char* mode) {
  const Fault::Bypass bypass;
  if (path != "/proc/self/fdinfo/" + std::to_string(current->fd_)) return ::fopen(path, mode);
  std::ostringstream text;
  text << "pos:\t0\nflags:\t02004000\n" << std::hex;
  for (const auto& watch : current->watches_) {
    text << "inotify wd:" << watch.first << " ino:2 sdev:1 mask:" << watch.second << "\n";
  }
  const std::string all = text.str();
  EXPECT_EQ(::ftruncate(watchList, 0), 0);
  EXPECT_EQ(::pwrite(watchList, all.data(), all.size(), 0), static_cast<ssize_t>(all.size()));
  return ::fopen(("/proc/self/fd/" + std::to_string(watchList)).c_str(), mode);
}

}  // namespace Zorbe::Test::Fuzz
