// SPDX-License-Identifier: MIT
//
// What the library requires of an event loop: a logging sink, three callback
// interfaces, three control objects and the functions that hand them out. Any
// loop that honours these contracts can drive the library; the bundled one is
// in <brask/linux/event_loop.h>.
//
// Threads: everything here is used on one thread, that of the loop. Callbacks
// come one at a time, from the loop, never from inside a call made to a control. A
// callback may make, use and delete any control, its own included.
//
// docs/platform.md lists what the library relies on, and the tests of each promise.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>

#pragma GCC visibility push(default)

namespace Brask::Platform {

/// Where log messages go. Owned by the client; outlives every object that was
/// given a reference to it.
///
/// Either operation may throw. What it throws comes out of the library's operation that
/// logs, with the calling thread in the network namespace that it was in before. The
/// operation is then unfinished: its object may only be destroyed. A destructor drops
/// std::bad_alloc together with the message; any other exception from the message of a destructor
/// ends the process (std::terminate).
class DebugHandler {
 public:
  virtual ~DebugHandler() = default;

  /// True when messages of `level` are wanted. Lower numbers matter more:
  /// 0 failures, 1 notable events, 2 milestones, 3 routine file operations,
  /// 5 step tracing, 9 per-item tracing inside loops.
  virtual bool isEnabled(int level) = 0;

  /// Takes one finished message (its text is `message.str()`). Called only
  /// after `isEnabled(level)` returned true. May change `errno`.
  virtual void emit(std::ostringstream& message, int level) = 0;
};

/// Receives the events of a watched descriptor.
class FdEventHandler {
 public:
  virtual ~FdEventHandler() = default;

  /// `fd` has something to read: data, an end of file, an error or, for a
  /// listening socket, a connection. Level-triggered: called again for as long
  /// as that is so.
  virtual void fdEvent(int fd) = 0;
};

/// Receives the expiry of a timer.
class TimeoutHandler {
 public:
  virtual ~TimeoutHandler() = default;

  /// The timer has expired and is no longer armed.
  virtual void timeout() = 0;
};

/// Receives the events of a watched path.
class InotifyHandler {
 public:
  virtual ~InotifyHandler() = default;

  /// The watch could not be set, or the kernel's queue was full and events were lost
  /// (reported to every control that has a watch); `what` says why.
  virtual void inotifyError(const std::string& what) = 0;

  /// The watched path was removed, and with it the watch. Reported once, after all of its changes.
  virtual void inotifyDeleted() = 0;

  /// Something that the mask asked for happened; `what` is the name of the
  /// directory entry, or the watched path where the kernel gives no name.
  virtual void inotifyChanged(const std::string& what) = 0;
};

/// Watches one descriptor for its handler. Never owns the descriptor. Deleting
/// the control ends the watch; no callback follows.
class FdControl {
 public:
  virtual ~FdControl() = default;

  /// Starts calling `fdEvent(fd)` whenever `fd` has something to read. Puts the
  /// descriptor into non-blocking mode. Replaces the descriptor watched before. Throws
  /// when `fd` cannot be watched; then nothing is.
  virtual void watch(int fd) = 0;

  /// Stops watching. Harmless after the descriptor was closed, and when nothing is watched.
  virtual void unwatch() = 0;

  /// The descriptor being watched, -1 when there is none.
  virtual int fd() = 0;
};

/// A one-shot timer on the monotonic clock, never early. Deleting the control disarms it.
class TimerControl {
 public:
  virtual ~TimerControl() = default;

  /// Arms the timer, or moves it when armed. 0.0 asks for `timeout()` on the
  /// next turn of the loop, never from within `start`.
  virtual void start(double seconds) = 0;

  /// Disarms the timer; no `timeout()` follows. Harmless when it is not armed.
  virtual void cancel() = 0;
};

/// Watches one path with inotify(7). Deleting the control ends the watch. A control receives
/// the events of its own mask that happen while it has the watch, and none from before,
/// regardless of other watchers of the same directory.
///
/// The library has a control for a directory and one for an entry in it, and makes both
/// again when they are removed. The loop may therefore spare a control the end of its
/// directory, but only where the control's own mask reported the removal (IN_DELETE) of an entry
/// that another control watches, and only if its path leads to a directory again, to which its
/// watch then moves. In every other case the end is one `inotifyDeleted()`, also when moving
/// fails; what the kernel refuses then is an `inotifyError` as well.
class InotifyControl {
 public:
  virtual ~InotifyControl() = default;

  /// Watches `path` for the events in `mask` (the bits of inotify(7)). Replaces
  /// the watch set before. A failure is reported through `inotifyError`, later.
  virtual void addWatch(std::string path, uint32_t mask) = 0;

  /// Ends the watch. The library itself never calls this.
  virtual void removeWatch() = 0;

  /// The path given to the last `addWatch`, empty before.
  virtual std::string path() = 0;
};

/// Each hands out a new control bound to the handler. The caller owns the control and deletes
/// it before the handler is destroyed.
FdControl* getFdControl(FdEventHandler* handler);
TimerControl* getTimerControl(TimeoutHandler* handler);
InotifyControl* getInotifyControl(InotifyHandler* handler);

}  // namespace Brask::Platform

#pragma GCC visibility pop
