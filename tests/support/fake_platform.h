// SPDX-License-Identifier: MIT
//
// Replaces the platform libraries: defines every function of their contract, records the
// library's calls, and calls back on request of the test.
//
//     kick.doConnect();
//     platform.fd(0).fire();
//     EXPECT_THAT(platform.calls(), ElementsAre("fd#0 create", "fd#0 watch 7"));
#pragma once

#include "support/fake_controls.h"
#include "support/noncopyable.h"

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// One at a time: the member of the fixture that the platform's functions work on.
class FakePlatform : private NonCopyable {
 public:
  FakePlatform();
  ~FakePlatform();  // DEFAULT_NS is "default" again

  /// Controls in order of creation, also when deleted since. Throw std::out_of_range.
  FakeFdControl& fd(size_t index) { return *fds_.at(index); }
  FakeTimerControl& timer(size_t index) { return *timers_.at(index); }
  FakeInotifyControl& inotify(size_t index) { return *inotifies_.at(index); }
  size_t fdCount() const { return fds_.size(); }
  size_t timerCount() const { return timers_.size(); }

  /// Calls made to all controls and the test's own notes, in order: "fd#0 watch 7",
  /// "timer#0 start 30", "inotify#0 addWatch /x 0x208", "fd#0 delete".
  const Journal& calls() const { return *journal_; }
  Journal takeCalls();
  void note(const std::string& text) { journal_->push_back(text); }

  /// The `occurrence`th `watch` from now on throws std::system_error with this error.
  void failWatch(int error, unsigned occurrence = 1);

  /// setnsByName returns 0, or -1 and leaves a text for netnsGetTracebuffer, which may
  /// be none. At first it fails, as in a test that is run by an ordinary user.
  void letSetnsSucceed() { setnsResult_ = 0; }
  void letSetnsFail(std::optional<std::string> tracebuffer);

  /// The calls so far, each as "default 0x40000000".
  const std::vector<std::string>& setnsCalls() const { return setnsCalls_; }
  unsigned tracebufferReads() const { return tracebufferReads_; }

  /// mkpath creates directories as it should, or returns -1 with this errno.
  void failMkpath(int error) { mkpathError_ = error; }

  /// The calls so far, each as "/root/quotes 0777".
  const std::vector<std::string>& mkpathCalls() const { return mkpathCalls_; }

  // What the platform's functions call.
  static FakePlatform& current();
  std::shared_ptr<FakeFdControl> addFd(Brask::Platform::FdEventHandler* handler);
  std::shared_ptr<FakeTimerControl> addTimer(Brask::Platform::TimeoutHandler* handler);
  std::shared_ptr<FakeInotifyControl> addInotify(Brask::Platform::InotifyHandler* handler);
  int watchFailure();
  int setnsByName(const char* name, int nstype);
  const char* tracebuffer();
  int mkpath(const std::string& path, unsigned mode);

 private:
  std::shared_ptr<Journal> journal_ = std::make_shared<Journal>();
  std::deque<std::shared_ptr<FakeFdControl>> fds_;
  std::deque<std::shared_ptr<FakeTimerControl>> timers_;
  std::deque<std::shared_ptr<FakeInotifyControl>> inotifies_;
  unsigned watchesUntilFailure_ = 0;
  int watchError_ = 0;
  int setnsResult_ = -1;
  std::optional<std::string> tracebuffer_ = "no namespaces in this test";
  std::vector<std::string> setnsCalls_;
  unsigned tracebufferReads_ = 0;
  int mkpathError_ = 0;
  std::vector<std::string> mkpathCalls_;
};

}  // namespace Zorbe::Test
