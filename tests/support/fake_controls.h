// SPDX-License-Identifier: MIT
//
// The test's end of each control that FakePlatform handed out. It outlives the control.
#pragma once

#include <brask/platform.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Test {

/// The calls to all controls, in order, each as "fd#0 watch 7".
using Journal = std::vector<std::string>;

/// What the three have in common. Firing a control that could not call back (deleted, not
/// watching, not armed) fails the test.
template <class Handler>
class FakeControl {
 public:
  FakeControl(std::string name, std::shared_ptr<Journal> journal, Handler* handler)
      : handler_(handler), name_(std::move(name)), journal_(std::move(journal)) {
    record("create");
  }

  /// The control has been deleted.
  bool isDeleted() const { return deleted_; }

  /// How often the library called fd() or path().
  unsigned queries() const { return queries_; }

  void record(const std::string& call) { journal_->push_back(name_ + " " + call); }
  void remove() {
    record("delete");
    deleted_ = true;
  }

 protected:
  bool mayFire(bool ready, const char* reason) const {
    if (deleted_) ADD_FAILURE() << name_ << " was deleted and cannot call back";
    if (!deleted_ && !ready) ADD_FAILURE() << name_ << " cannot call back: " << reason;
    return !deleted_ && ready;
  }

  Handler* handler_;
  unsigned queries_ = 0;

 private:
  std::string name_;
  std::shared_ptr<Journal> journal_;
  bool deleted_ = false;
};

class FakeFdControl : public FakeControl<Brask::Platform::FdEventHandler> {
 public:
  using FakeControl::FakeControl;

  /// Calls `fdEvent` with the watched descriptor.
  void fire() {
    if (mayFire(watching(), "nothing is watched")) handler_->fdEvent(fd_);
  }

  int fd() const { return fd_; }
  bool watching() const { return fd_ >= 0; }

  void watch(int fd) { fd_ = fd; }
  void unwatch() {
    record("unwatch");
    fd_ = -1;
  }
  int answer() {
    ++queries_;
    return fd_;
  }

 private:
  int fd_ = -1;
};

class FakeTimerControl : public FakeControl<Brask::Platform::TimeoutHandler> {
 public:
  using FakeControl::FakeControl;

  /// The timer expires: disarms it and calls `timeout`.
  void fire() {
    if (!mayFire(armed_, "the timer is not armed")) return;
    armed_ = false;
    handler_->timeout();
  }

  bool armed() const { return armed_; }
  /// The argument of the last `start`.
  double seconds() const { return seconds_; }

  void start(double seconds) {
    std::ostringstream text;
    text << "start " << seconds;
    record(text.str());
    armed_ = true;
    seconds_ = seconds;
  }
  void cancel() {
    record("cancel");
    armed_ = false;
  }

 private:
  bool armed_ = false;
  double seconds_ = 0;
};

class FakeInotifyControl : public FakeControl<Brask::Platform::InotifyHandler> {
 public:
  using FakeControl::FakeControl;

  void changed(const std::string& what) {
    if (mayFire(watching_, "nothing is watched")) handler_->inotifyChanged(what);
  }
  /// A watch that could not be set reports its error, too.
  void error(const std::string& what) {
    if (mayFire(!path_.empty(), "addWatch was not called")) handler_->inotifyError(what);
  }
  /// The watched path is removed: ends the watch and calls `inotifyDeleted`.
  void deleted() {
    if (!mayFire(watching_, "nothing is watched")) return;
    watching_ = false;
    handler_->inotifyDeleted();
  }

  bool watching() const { return watching_; }
  const std::string& path() const { return path_; }
  uint32_t mask() const { return mask_; }

  void addWatch(const std::string& path, uint32_t mask) {
    std::ostringstream text;
    text << "addWatch " << path << " 0x" << std::hex << mask;
    record(text.str());
    watching_ = true;
    path_ = path;
    mask_ = mask;
  }
  void removeWatch() {
    record("removeWatch");
    watching_ = false;
  }
  std::string answer() {
    ++queries_;
    return path_;
  }

 private:
  bool watching_ = false;
  std::string path_;
  uint32_t mask_ = 0;
};

}  // namespace Zorbe::Test
