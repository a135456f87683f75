// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace Quotes {

/// The lines of a descriptor, at a limited rate.
class Feed {
 public:
  /// `linesPerSecond` 0 means as fast as they come. The descriptor stays the caller's.
  Feed(int fd, double linesPerSecond) : fd_(fd), linesPerSecond_(linesPerSecond) {}

  /// Whether next() has a line. Otherwise waits for one, and no longer than until `signals`, a
  /// descriptor, is readable. Throws std::runtime_error when the input cannot be read.
  bool await(int signals) {
    if (isReady() || hasEnded()) return isReady();
    pollfd waiting[] = {{signals, POLLIN, 0}, {fd_, POLLIN, 0}};
    const bool isForInput = !hasLine();
    const int timeout = isForInput ? -1 : static_cast<int>(untilDue().count());
    if (::poll(waiting, isForInput ? 2 : 1, timeout) < 0) return false;  // as if by a signal
    if (isForInput && waiting[1].revents != 0) readMore();
    return isReady();
  }

  /// Whether next() has a line without waiting.
  bool isReady() const { return hasLine() && untilDue().count() == 0; }

  /// No line will come any more.
  bool hasEnded() const { return ended_ && !hasLine(); }

  std::string next() {
    const size_t end = buffer_.find('\n', begin_);
    std::string line = buffer_.substr(begin_, end - begin_);
    begin_ = end + 1;
    ++number_;
    return line;
  }

  /// The number of the line that next() has returned last, from 1.
  uint64_t number() const { return number_; }

 private:
  bool hasLine() const { return buffer_.find('\n', begin_) != buffer_.npos; }

  std::chrono::milliseconds untilDue() const {
    using namespace std::chrono;
    if (linesPerSecond_ <= 0) return milliseconds(0);
    const duration<double> due(static_cast<double>(number_) / linesPerSecond_);
    return std::max(milliseconds(0), ceil<milliseconds>(startedAt_ + due - steady_clock::now()));
  }

  void readMore() {
    constexpr size_t kChunk = 16384;
    buffer_.erase(0, begin_);
    begin_ = 0;
    const size_t kept = buffer_.size();
    buffer_.resize(kept + kChunk);
    const ssize_t got = ::read(fd_, &buffer_[kept], kChunk);
    const int error = errno;
    buffer_.resize(kept + (got > 0 ? static_cast<size_t>(got) : 0));
    if (got < 0 && error != EAGAIN && error != EINTR) throw std::runtime_error("input: read()");
    ended_ = got == 0;
    if (ended_ && !buffer_.empty() && buffer_.back() != '\n') buffer_ += '\n';
  }

  int fd_;
  double linesPerSecond_;
  std::chrono::steady_clock::time_point startedAt_ = std::chrono::steady_clock::now();
  std::string buffer_;
  size_t begin_ = 0;
  uint64_t number_ = 0;
  bool ended_ = false;
};

}  // namespace Quotes
