// SPDX-License-Identifier: MIT
#include "feed.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "clock.h"

namespace Quotes {

namespace {

constexpr size_t kChunk = 16384;
constexpr unsigned kLinesPerTurn = 256;
constexpr double kPaceSeconds = 0.001;

[[noreturn]] void fail(const char* call, int error) {
  throw Brask::RuntimeException(std::string("input: ") + call + ": " + std::strerror(error));
}

}  // namespace

Feed::Feed(int fd, double linesPerSecond, LineHandler lineHandler, EndHandler endHandler)
    : fd_(fd),
      linesPerSecond_(linesPerSecond),
      onLine_(std::move(lineHandler)),
      onEnd_(std::move(endHandler)),
      oldFlags_(::fcntl(fd, F_GETFL)),
      input_(Brask::Platform::getFdControl(this)),
      timer_(Brask::Platform::getTimerControl(this)) {}

// A watched descriptor was made non-blocking, and a terminal shares that with the shell.
Feed::~Feed() {
  if (oldFlags_ >= 0) static_cast<void>(::fcntl(fd_, F_SETFL, oldFlags_));
}

void Feed::start() {
  struct stat status {};
  if (::fstat(fd_, &status) != 0) fail("fstat()", errno);
  watchable_ = S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || ::isatty(fd_) == 1;
  startedAt_ = monotonicNanoseconds();
  waitForInput();
}

void Feed::waitForInput() {
  if (watchable_) {
    input_->watch(fd_);
  } else {
    timer_->start(0.0);
  }
}

void Feed::fdEvent(int) {
  input_->unwatch();
  timeout();
}

// Lines that are there are delivered before more is read; what is left over, or not due
// yet, waits for the timer.
void Feed::timeout() {
  if (buffer_.find('\n', begin_) == buffer_.npos && !ended_ && !readMore()) {
    waitForInput();
    return;
  }
  deliver();
}

/// False when there is nothing to read at this moment.
bool Feed::readMore() {
  buffer_.erase(0, std::exchange(begin_, 0));
  const size_t kept = buffer_.size();
  buffer_.resize(kept + kChunk);
  const ssize_t got = ::read(fd_, &buffer_[kept], kChunk);
  const int error = errno;
  buffer_.resize(kept + (got > 0 ? static_cast<size_t>(got) : 0));
  if (got < 0 && error != EAGAIN && error != EINTR) fail("read()", error);
  ended_ = got == 0;
  if (ended_ && !buffer_.empty() && buffer_.back() != '\n') buffer_ += '\n';
  return got >= 0;
}

void Feed::deliver() {
  const uint64_t due = linesDue();
  for (unsigned i = 0; i < kLinesPerTurn && lines_ < due; ++i) {
    if (deliverOne()) continue;
    if (ended_) {
      onEnd_();
    } else {
      waitForInput();
    }
    return;
  }
  timer_->start(lines_ < due ? 0.0 : kPaceSeconds);
}

bool Feed::deliverOne() {
  const size_t end = buffer_.find('\n', begin_);
  if (end == buffer_.npos) return false;
  const std::string line = buffer_.substr(begin_, end - begin_);
  begin_ = end + 1;
  onLine_(line, ++lines_);
  return true;
}

uint64_t Feed::linesDue() const {
  if (linesPerSecond_ <= 0) return UINT64_MAX;
  const double seconds = static_cast<double>(monotonicNanoseconds() - startedAt_) / 1e9;
  return static_cast<uint64_t>(seconds * linesPerSecond_) + 1;
}

}  // namespace Quotes
