// SPDX-License-Identifier: MIT
#include "brask/linux/inotify_queue.h"

#include <limits.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "brask/linux/owned_fd.h"

namespace Brask::Linux {

namespace {

constexpr size_t kChunk = size_t{64} * 1024;
constexpr size_t kLargestEvent = sizeof(inotify_event) + NAME_MAX + 1;

// A process that is slower than its events meets the limit of the kernel's queue instead of
// filling its memory.
constexpr size_t kMostDrained = size_t{1024} * 1024;

constexpr const char* kReading = "EventLoop read(inotify)";

bool isFailure(int error) {
  return error != 0 && error != EAGAIN && error != EINTR;
}

}  // namespace

InotifyQueue::InotifyQueue() = default;

// Removes the taken events from the buffer once they are more than those that have to be moved.
void InotifyQueue::shift() {
  const size_t rest = end_ - next_;
  if (rest >= next_) return;
  std::memmove(buffer_.data(), buffer_.data() + next_, rest);
  base_ += next_;
  turnEnd_ -= next_;
  end_ = rest;
  next_ = 0;
}

// Returns 0 or the errno of a read that returned no event.
int InotifyQueue::readSome(int fd) {
  if (buffer_.size() - end_ < kLargestEvent) shift();
  if (buffer_.size() - end_ < kLargestEvent) buffer_.resize(buffer_.size() + kChunk);
  const ssize_t got = ::read(fd, buffer_.data() + end_, buffer_.size() - end_);
  if (got < 0) return errno;
  end_ += static_cast<size_t>(got);
  return got != 0 ? 0 : EAGAIN;
}

void InotifyQueue::read(int fd) {
  const int error = readSome(fd);
  if (isFailure(error)) throwSystemError(error, kReading);
  beginTurn();
}

void InotifyQueue::drain(int fd) {
  int error = 0;
  try {
    while (error == 0 && end_ - next_ < kMostDrained) error = readSome(fd);
  } catch (const std::bad_alloc&) {  // the loop reads the rest
  }
  if (isFailure(error)) failure_ = error;
}

bool InotifyQueue::take(InotifyEvent& event) {
  if (failure_ != 0) throwSystemError(std::exchange(failure_, 0), kReading);
  if (next_ == turnEnd_) return false;
  inotify_event header;
  std::memcpy(&header, buffer_.data() + next_, sizeof header);
  event.wd = header.wd;
  event.mask = header.mask;
  event.position = base_ + next_;
  event.name = header.len != 0 ? buffer_.data() + next_ + sizeof header : "";
  next_ += sizeof header + header.len;
  return true;
}

}  // namespace Brask::Linux
