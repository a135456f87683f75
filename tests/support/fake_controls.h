// SPDX-License-Identifier: MIT
//
// The test's end of each control that FakePlatform handed out. It outlives the control.
#pragma once

#include <brask/platform.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Test {

/// The calls to all controls, in order, each as "fd#0 watch 7".
using Journal = std::vector<std::string>;

/// What the three have in common. Firing a control that could not call back (deleted, not
/// watching, not armed) fails the test.
class FakeControl {
 public:
  FakeControl(std::string name, std::shared_ptr<Journal> journal);

  /// The control has been deleted.
  bool isDeleted() const { return deleted_; }

  /// How often the library called fd() or path().
  unsigned queries() const { return queries_; }

  void record(const std::string& call);
  void remove();

 protected:
  bool mayFire(bool ready, const char* reason) const;

  unsigned queries_ = 0;

 private:
  std::string name_;
  std::shared_ptr<Journal> journal_;
  bool deleted_ = false;
};

template <class Handler>
class FakeControlOf : public FakeControl {
 public:
  FakeControlOf(std::string name, std::shared_ptr<Journal> journal, Handler* handler)
      : FakeControl(std::move(name), std::move(journal)), handler_(handler) {}

 protected:
  Handler* handler_;
};

class FakeFdControl : public FakeControlOf<Brask::Platform::FdEventHandler> {
 public:
  using FakeControlOf::FakeControlOf;

  /// Calls `fdEvent` with the watched descriptor.
  void fire();

  int fd() const { return fd_; }
  bool watching() const { return fd_ >= 0; }

  void watch(int fd, int failure);
  void unwatch();
  int answer();

 private:
  int fd_ = -1;
};

class FakeTimerControl : public FakeControlOf<Brask::Platform::TimeoutHandler> {
 public:
  using FakeControlOf::FakeControlOf;

  /// The timer expires: disarms it and calls `timeout`.
  void fire();

  bool armed() const { return armed_; }

  /// The argument of the last `start`.
  double seconds() const { return seconds_; }

  void start(double seconds);
  void cancel();

 private:
  bool armed_ = false;
  double seconds_ = 0;
};

class FakeInotifyControl : public FakeControlOf<Brask::Platform::InotifyHandler> {
 public:
  using FakeControlOf::FakeControlOf;

  void changed(const std::string& what);
  void error(const std::string& what);

  /// The watched path is removed: ends the watch and calls `inotifyDeleted`.
  void deleted();

  bool watching() const { return watching_; }
  const std::string& path() const { return path_; }
  uint32_t mask() const { return mask_; }

  void addWatch(const std::string& path, uint32_t mask);
  void removeWatch();
  std::string answer();

 private:
  bool watching_ = false;
  std::string path_;
  uint32_t mask_ = 0;
};

}  // namespace Zorbe::Test
