// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>
#include <utility>

#include "unit/platform/brask/linux/inotify_fixture.h"

namespace LoopTesting {

inline const std::string kOverflowError =
    "error inotify queue overflow: events have been lost (fs.inotify.max_queued_events is the "
    "limit)";

inline bool overflowing = false;

// What read(2) finds first when the kernel's queue was full.
inline ssize_t readOverflow(int fd, void* buffer, size_t size) {
  if (!std::exchange(overflowing, false)) {
    const Fault::Bypass bypass;
    return ::read(fd, buffer, size);
  }
  inotify_event event{};
  event.wd = -1;
  event.mask = IN_Q_OVERFLOW;
  std::memcpy(buffer, &event, sizeof event);
  return sizeof event;
}

// The kernel's queue was full: all that it had is lost.
inline ssize_t readOverflowAlone(int fd, void* buffer, size_t size) {
  if (!overflowing) return readOverflow(fd, buffer, size);
  const Fault::Bypass bypass;
  while (::read(fd, buffer, size) > 0) {
  }
  return readOverflow(fd, buffer, size);
}

// The kernel reports an overflow, and then what it has.
inline void overflow() {
  overflowing = true;
  Fault::divert("read", readOverflow);
}
inline void overflowAlone() {
  overflowing = true;
  Fault::divert("read", readOverflowAlone);
}

class InotifyFaultTest : public InotifyTest {
 protected:
  // A refused watch is reported as `error`; added again, it works.
  void expectRefusedOnce(const std::string& error) {
    InotifyProbe probe;
    probe.control->addWatch(directory.path, IN_CREATE);
    EXPECT_TRUE(loop->turn(0));
    probe.control->addWatch(directory.path, IN_CREATE);
    directory.make("one");
    settle();
    EXPECT_EQ((Reports{"error " + error, "changed one"}), probe.reports);
  }
};

}  // namespace LoopTesting
