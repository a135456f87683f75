// SPDX-License-Identifier: MIT
#include "fuzz/made_up_inotify.h"

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
  if (found != watches_.end() && (found->second & bit) != 0) queue({found->first, bit, name, 0, 0});
}

void MadeUpInotify::end(size_t directory, uint32_t why) {
  if (watchOf_[directory] == 0) return;
  if (why != 0) queue({watchOf_[directory], why, "", 0, 0});
  queue({watchOf_[directory], IN_IGNORED, "", 0, 0});
  watches_.erase(std::exchange(watchOf_[directory], 0));
}

void MadeUpInotify::queue(Event event) {
  event.first = event.last = tick();
  if (!queue_.empty()) {
    Event& tail = queue_.back();
    if (tail.wd == event.wd && tail.mask == event.mask && tail.name == event.name) {
      tail.last = event.last;
      return;
    }
  }
  queue_.push_back(std::move(event));
}

void MadeUpInotify::remove(size_t directory) {
  if (!there_[directory]) return;
  const auto tellParent = [&] {
    if (isInner(directory)) change(directory - 1, IN_DELETE, nameOf(directory));
  };
  if (!isInner(directory)) remove(directory + 1);
  if (parentFirst) tellParent();
  change(directory, IN_DELETE_SELF, "");
  end(directory, 0);
  there_[directory] = false;
  if (!parentFirst) tellParent();
}

void MadeUpInotify::unmount(size_t directory) {
  if (!isInner(directory)) unmount(directory + 1);
  end(directory, IN_UNMOUNT);
  there_[directory] = false;
}

void MadeUpInotify::make(size_t directory) {
  if (there_[directory]) return;
  if (isInner(directory)) make(directory - 1);
  there_[directory] = true;
  if (isInner(directory)) change(directory - 1, IN_CREATE, nameOf(directory));
}

// The old one is still watched, under a path that leads there no more.
void MadeUpInotify::replace(size_t directory) {
  if (!there_[directory]) return;
  if (isInner(directory)) change(directory - 1, IN_MOVED_FROM, nameOf(directory));
  change(directory, IN_MOVE_SELF, "");
  watchOf_[directory] = 0;
  if (isInner(directory)) return change(directory - 1, IN_CREATE, nameOf(directory));
  watchOf_[directory + 1] = 0;
  there_[directory + 1] = false;
}

void MadeUpInotify::overflow() {
  queue_.clear();
  queue({-1, IN_Q_OVERFLOW, "", 0, 0});
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

std::optional<std::vector<Event>> MadeUpInotify::takeRead() {
  if (reads_.empty()) return std::nullopt;
  std::vector<Event> read = std::move(reads_.front());
  reads_.pop_front();
  return read;
}

std::set<int> MadeUpInotify::takeList() {
  EXPECT_FALSE(lists_.empty()) << "the watches were not looked at";
  const std::set<int> list = lists_.front();
  lists_.pop_front();
  return list;
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
    reads_.back().push_back(event);
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
  current->queue({wd, IN_IGNORED, "", 0, 0});
  return 0;
}

ssize_t MadeUpInotify::read(int fd, void* buffer, size_t size) {
  if (fd != current->fd_) {
    const Fault::Bypass bypass;
    return ::read(fd, buffer, size);
  }
  current->reads_.emplace_back();
  if (current->queue_.empty()) return failing(EAGAIN);
  return static_cast<ssize_t>(current->fill(static_cast<char*>(buffer), size));
}

// /proc/self/fdinfo of the descriptor, which tells in base 16.
FILE* MadeUpInotify::tellWatches(const char* path, const char* mode) {
  const Fault::Bypass bypass;
  if (path != "/proc/self/fdinfo/" + std::to_string(current->fd_)) return ::fopen(path, mode);
  std::ostringstream text;
  text << "pos:\t0\nflags:\t02004000\n" << std::hex;
  std::set<int>& list = current->lists_.emplace_back();
  for (const auto& watch : current->watches_) {
    list.insert(watch.first);
    text << "inotify wd:" << watch.first << " ino:2 sdev:1 mask:" << watch.second << "\n";
  }
  const std::string all = text.str();
  EXPECT_EQ(::ftruncate(watchList, 0), 0);
  EXPECT_EQ(::pwrite(watchList, all.data(), all.size(), 0), static_cast<ssize_t>(all.size()));
  return ::fopen(("/proc/self/fd/" + std::to_string(watchList)).c_str(), mode);
}

}  // namespace Zorbe::Test::Fuzz
