// SPDX-License-Identifier: MIT
//
// For tests of any platform: handlers that own their control. Installed with the conformance suite.
#pragma once

#include <brask/platform.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Test {

/// A handler of descriptor events with its control.
struct FdProbe : Brask::Platform::FdEventHandler {
  explicit FdProbe(std::function<void(int)> action = {})
      : onEvent(std::move(action)), control(Brask::Platform::getFdControl(this)) {}
  void fdEvent(int fd) override {
    ++events;
    last = fd;
    // A copy: the action may delete this probe.
    if (const auto action = onEvent) action(fd);
  }

  int events = 0;
  int last = -1;
  std::function<void(int)> onEvent;
  std::unique_ptr<Brask::Platform::FdControl> control;
};

/// A handler of timeouts with its control.
struct TimerProbe : Brask::Platform::TimeoutHandler {
  explicit TimerProbe(std::function<void()> action = {})
      : onTimeout(std::move(action)), control(Brask::Platform::getTimerControl(this)) {}
  void timeout() override {
    ++timeouts;
    if (const auto action = onTimeout) action();
  }

  int timeouts = 0;
  std::function<void()> onTimeout;
  std::unique_ptr<Brask::Platform::TimerControl> control;
};

/// A handler of inotify events with its control. Keeps what was reported to it.
struct InotifyProbe : Brask::Platform::InotifyHandler {
  explicit InotifyProbe(std::function<void()> action = {})
      : onEvent(std::move(action)), control(Brask::Platform::getInotifyControl(this)) {}
  void inotifyError(const std::string& what) override { note("error " + what); }
  void inotifyDeleted() override { note("deleted"); }
  void inotifyChanged(const std::string& what) override { note("changed " + what); }
  void note(const std::string& text) {
    reports.push_back(text);
    if (const auto action = onEvent) action();
  }

  std::vector<std::string> reports;
  std::function<void()> onEvent;
  std::unique_ptr<Brask::Platform::InotifyControl> control;
};

}  // namespace Zorbe::Test
