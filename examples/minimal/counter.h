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

/// Maps the table of `root`, making it when it is not there. Mapped for good.
inline std::atomic<uint64_t>& mapCounter(Brask::Platform::DebugHandler& log,
                                         const Zorbe::RootPath& root) {
  const std::string path = root.fullPath("slots");
  Zorbe::Util::touch(log, path);
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) throw std::runtime_error("cannot open " + path);
  const bool sized = ::ftruncate(fd, sizeof(uint64_t)) == 0;
  void* memory = ::mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
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
