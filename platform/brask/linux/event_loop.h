// SPDX-License-Identifier: MIT
//
// The bundled event loop: epoll, one timerfd, one inotify descriptor. The getters
// of <brask/platform.h> hand out controls of the calling thread's loop.
//
//   Brask::Linux::EventLoop loop;              // first: the getters need it
//   std::unique_ptr<Brask::Platform::TimerControl> timer(
//       Brask::Platform::getTimerControl(&handler));
//   timer->start(0.5);
//   loop.run();                                // until loop.stop() is called
//
// Destroy the loop last: a control that outlives it may only be deleted.
#pragma once

#include <memory>

#pragma GCC visibility push(default)

namespace Brask::Linux {

class Loop;
Loop& currentLoop();

/// Calls the handlers of its controls when their descriptor, timer or path has an event.
/// Belongs to the thread that made it, unless it is unbound; only stop() may be called from
/// other threads. Not for use across fork().
///
/// A callback may use any control, delete controls and handlers, its own included, and
/// call stop(). It must not delete the loop. After a callback has deleted or ended a
/// registration, no callback follows for it, even when the kernel had reported an event
/// before. An exception leaves turn() or run() as it is; the callbacks that were due
/// after it run in the next turn.
///
/// Watched paths, beyond what <brask/platform.h> promises. A control whose directory is
/// removed and made again together with an entry that another control watches (or that it
/// was just refused) is spared the end under the conditions named there:
/// - A removal that happened before the control's own watch began, and that only the
///   entry's control received, is reported by `inotifyChanged` instead of the end.
/// - A path that does not exist is tried once more in a later turn.
/// - A path that cannot be watched again because it was removed is reported, with its name,
///   to the controls of its parent directory that ask for IN_DELETE.
/// - A control that asks for IN_DELETE and could not watch its path again because it was
///   removed watches it as soon as another control watches an entry of it.
/// The end of a control that asks for IN_DELETE_SELF or IN_MOVE_SELF, and of a file system
/// that is unmounted, is always reported.
class EventLoop {
 public:
  /// Becomes the loop of the calling thread. Throws std::logic_error when the
  /// thread has one, std::system_error when the kernel refuses a descriptor.
  EventLoop();

  /// Chooses the constructor below.
  struct Unbound {};

  /// A loop that no thread owns: any thread may use it, one at a time. It is the current
  /// loop of its callbacks; elsewhere a Use makes it current.
  explicit EventLoop(Unbound unbound);

  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// The calling thread's loop. Throws std::logic_error when it has none.
  static EventLoop& current();

  /// Turns until stop(). Returns at once if stop() was called before. Throws
  /// std::logic_error inside a callback, as turn() does.
  void run();

  /// Makes run() return after the turn it is in, and the turn end its wait. A
  /// stop() stays in force until a run() has returned for it; until then turn()
  /// does not wait. May be called from any thread and from a signal handler while the loop
  /// exists. run() may return before a stop() on another thread has returned: join that
  /// thread, and remove the signal handler, before destroying the loop.
  void stop() noexcept;

  /// One turn. Waits until a callback ran, `maxWaitSeconds` have passed, or
  /// stop(); a negative number waits for ever, 0.0 does not wait. Returns whether
  /// a callback ran.
  bool turn(double maxWaitSeconds);

  /// A descriptor that is readable when turn(0) has something to do: to be polled
  /// by another loop, which then calls turn(0). The loop owns it. Not to be read.
  int fd() const noexcept;

  /// Makes a loop the current one of the calling thread, so that the getters hand out its
  /// controls. Uses nest: the destructor makes the thread's former loop, if any, current
  /// again. Destroy it on the thread that made it, before the loop.
  class Use {
   public:
    /// Makes `loop` current.
    explicit Use(EventLoop& loop) noexcept;
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

   private:
    EventLoop* former_;
  };

 private:
  friend Loop& currentLoop();

  std::unique_ptr<Loop> loop_;
};

}  // namespace Brask::Linux

#pragma GCC visibility pop
