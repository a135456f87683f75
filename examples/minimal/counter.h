// SPDX-License-Identifier: MIT
//
// The smallest table there is, one number in the file "slots", and a timer.
#pragma once

#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

/// Maps the table of `root`, for good. Only the writer, whose root is one that is created, makes
/// a table: a reader that did would read one that nobody writes.
inline std::atomic<uint64_t>& mapCounter(Brask::Platform::DebugHandler& log,
                                         const Zorbe::RootPath& root) {
  constexpr off_t kSize = sizeof(uint64_t);
  const std::string path = root.fullPath("slots");
  if (root.create) Zorbe::Util::touch(log, path);
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("no table: cannot open " + path);
  const bool sized = root.create ? ::ftruncate(fd, kSize) == 0 : ::lseek(fd, 0, SEEK_END) == kSize;
  void* memory = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  static_cast<void>(::close(fd));  // the mapping keeps the file
  if (!sized || memory == MAP_FAILED) throw std::runtime_error("cannot map " + path);
  return *static_cast<std::atomic<uint64_t>*>(memory);
}

/// Calls `action` again and again, with so many seconds in between.
class Every : public Brask::Platform::TimeoutHandler {
 public:
  Every(double seconds, std::function<void()> action)
      : seconds_(seconds),
        action_(std::move(action)),
        timer_(Brask::Platform::getTimerControl(this)) {
    timer_->start(seconds_);
  }
  void timeout() override {
    timer_->start(seconds_);
    action_();
  }

 private:
  double seconds_;
  std::function<void()> action_;
  std::unique_ptr<Brask::Platform::TimerControl> timer_;
};
