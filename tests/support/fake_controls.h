// SPDX-License-Identifier: MIT
//
// What FakePlatform keeps of each control that it handed out: the test's end of it. It
// stays when the control has been deleted.
#pragma once

#include <brask/platform.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// The calls made to all controls, in order, each as "fd#0 watch 7".
using Journal = std::vector<std::string>;

/// What the three have in common. Firing at a control that could not call back (deleted,
/// not watching, not armed) fails the test.
class FakeControl {
 public:
  FakeControl(std::string name, std::shared_ptr<Journal> journal);

  /// The control has been deleted.
  bool gone() const { return gone_; }

  void record(const std::string& call);
  void remove();

 protected:
  bool mayFire(bool ready, const char* reason) const;

 private:
  std::string name_;
  std::shared_ptr<Journal> journal_;
  bool gone_ = false;
};

class FakeFdControl : public FakeControl {
 public:
  FakeFdControl(std::string name, std::shared_ptr<Journal> journal,
                Brask::Platform::FdEventHandler* handler);

  /// Calls `fdEvent` with the watched descriptor.
  void fire();

  int fd() const { return fd_; }
  bool watching() const { return fd_ >= 0; }

  /// How often the library asked `fd()`.
  unsigned queries() const { return queries_; }

  void watch(int fd, int failure);
  void unwatch();
  int answer();

 private:
  Brask::Platform::FdEventHandler* handler_;
  int fd_ = -1;
  unsigned queries_ = 0;
};

class FakeTimerControl : public FakeControl {
 public:
  FakeTimerControl(std::string name, std::shared_ptr<Journal> journal,
                   Brask::Platform::TimeoutHandler* handler);

  /// The time is over: disarms the timer and calls `timeout`.
  void fire();

  bool armed() const { return armed_; }

  /// What the last `start` asked for.
  double seconds() const { return seconds_; }

  void start(double seconds);
  void cancel();

 private:
  Brask::Platform::TimeoutHandler* handler_;
  bool armed_ = false;
  double seconds_ = 0;
};

class FakeInotifyControl : public FakeControl {
 public:
  FakeInotifyControl(std::string name, std::shared_ptr<Journal> journal,
                     Brask::Platform::InotifyHandler* handler);

  void changed(const std::string& what);
  void error(const std::string& what);

  /// The watched path is gone: ends the watch and calls `inotifyDeleted`.
  void deleted();

  bool watching() const { return watching_; }
  const std::string& path() const { return path_; }
  uint32_t mask() const { return mask_; }

  /// How often the library asked `path()`.
  unsigned queries() const { return queries_; }

  void addWatch(const std::string& path, uint32_t mask);
  void removeWatch();
  std::string answer();

 private:
  Brask::Platform::InotifyHandler* handler_;
  bool watching_ = false;
  std::string path_;
  uint32_t mask_ = 0;
  unsigned queries_ = 0;
};

}  // namespace Zorbe::Test
