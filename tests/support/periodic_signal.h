// SPDX-License-Identifier: MIT
#pragma once

#include "support/noncopyable.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>

namespace Zorbe::Test {

/// Interrupts system calls that wait, periodically, as a client's watchdog would: a connect
/// to a stopped writer waits for ever otherwise.
class PeriodicSignal : private NonCopyable {
 public:
  explicit PeriodicSignal(std::chrono::milliseconds period = std::chrono::milliseconds(20)) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and no SA_RESTART
    EXPECT_EQ(0, ::sigaction(SIGALRM, &action, &before_));
    set(period);
  }
  ~PeriodicSignal() {
    set(std::chrono::milliseconds(0));
    EXPECT_EQ(0, ::sigaction(SIGALRM, &before_, nullptr));
  }

 private:
  static void set(std::chrono::microseconds period) {
    const timeval every{period.count() / 1000000, period.count() % 1000000};
    const itimerval timer{every, every};
    EXPECT_EQ(0, ::setitimer(ITIMER_REAL, &timer, nullptr));
  }

  struct sigaction before_ {};
};

}  // namespace Zorbe::Test
