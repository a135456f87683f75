// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Quotes {

/// Brings a descriptor's lines from the loop, a few at a time, so that the loop can
/// serve its other descriptors in between. Works for pipes and terminals, which are
/// watched, and for regular files, which cannot be and are read by a timer.
class Feed : public Brask::Platform::FdEventHandler, public Brask::Platform::TimeoutHandler {
 public:
  using LineHandler = std::function<void(const std::string& line, uint64_t number)>;
  using EndHandler = std::function<void()>;

  /// `linesPerSecond` 0 means as fast as they come. The descriptor is not closed.
  Feed(int fd, double linesPerSecond, LineHandler lineHandler, EndHandler endHandler);

  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  /// Puts the descriptor's flags back.
  ~Feed() override;

  /// Throws Brask::RuntimeException when the descriptor cannot be read.
  void start();

  void fdEvent(int fd) override;
  void timeout() override;

 private:
  bool readMore();
  void deliver();
  bool deliverOne();
  uint64_t linesDue() const;
  void waitForInput();

  int fd_;
  double linesPerSecond_;
  LineHandler onLine_;
  EndHandler onEnd_;
  int oldFlags_;
  bool watchable_ = false;
  bool ended_ = false;
  std::string buffer_;
  size_t begin_ = 0;
  uint64_t lines_ = 0;
  uint64_t startedAt_ = 0;
  std::unique_ptr<Brask::Platform::FdControl> input_;
  std::unique_ptr<Brask::Platform::TimerControl> timer_;
};

}  // namespace Quotes
