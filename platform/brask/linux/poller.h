// SPDX-License-Identifier: MIT
#pragma once

#include <sys/epoll.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "brask/linux/owned_fd.h"

namespace Brask::Linux {

/// The epoll descriptor and the batch of events that it reported last. Events of a batch that
/// were not taken stay until they are.
class Poller {
 public:
  Poller();

  int fd() const { return fd_.get(); }

  /// Reports `fd` with `data` for as long as it has something to read. Returns 0, or the errno
  /// of the kernel's refusal.
  int add(int fd, uint64_t data);

  /// Stops and continues reporting a descriptor, which stays registered.
  void pause(int fd, uint64_t data);
  void resume(int fd, uint64_t data);

  /// Removes `fd`; silent when the kernel has removed it already.
  void remove(int fd);

  /// Waits for events; returns early, without any, when a signal came. A
  /// negative `milliseconds` waits for ever.
  void wait(int milliseconds);

  /// Whether the batch holds an event with `data`.
  bool reported(uint64_t data) const {
    for (size_t event = next_; event < count_; ++event) {
      if (batch_[event].data.u64 == data) return true;
    }
    return false;
  }

  /// The `data` of the next event of the batch, false after the last.
  bool take(uint64_t& data) {
    if (next_ == count_) return false;
    data = batch_[next_++].data.u64;
    return true;
  }

  /// Replaces the epoll descriptor, under the same number, by one with only the descriptors
  /// that `addAll` adds to it. Returns false, with nothing changed, when
  /// there is no descriptor left or when `addAll`, which throws nothing, returns false.
  bool renew(const std::function<bool()>& addAll);

 private:
  void modify(int fd, uint32_t events, uint64_t data);

  OwnedFd fd_;
  size_t next_ = 0;
  size_t count_ = 0;
  std::vector<epoll_event> batch_{1024};  // on the heap: turns without events do not touch it
};

}  // namespace Brask::Linux
