// SPDX-License-Identifier: MIT
//
// The bundled event loop: epoll, one timerfd, one inotify descriptor. The getters
// of <brask/platform.h> hand out controls of the calling thread's loop.
//
//   Brask::Linux::EventLoop loop;              // first: the getters need it
//   std::unique_ptr<Brask::Platform::TimerControl> timer(
//       Brask::Platform::getTimerControl(&handler));
//   timer->start(0.5);
//   loop.run();                                // until somebody calls loop.stop()
//
// The loop goes last: a control that outlives it may only be deleted.
#pragma once

#include <memory>

#pragma GCC visibility push(default)

namespace Brask::Linux {

class Loop;
Loop& currentLoop();

/// Calls the handlers of its controls when their descriptor, timer or path has
/// something to tell. Belongs to the thread that made it, unless it is unbound; only
/// stop() may be called from elsewhere. Not for use across fork().
///
/// A callback may do anything to any control, delete controls and handlers, its
/// own included, and call stop(). It must not delete the loop. No callback comes
/// for what a callback before it has deleted or ended, whatever the kernel had
/// reported by then. An exception leaves turn() or run() as it is; the callbacks
/// that were due behind it come in the next turn.
///
/// Watched paths, beyond what <brask/platform.h> promises. A control whose directory is
/// removed and made again together with an entry that another control watches (or that it
/// was just refused) is spared the end under the conditions named there:
/// - A removal that happened before the control's own watch began, and that only the
///   entry's control received, is reported by `inotifyChanged` instead of the end.
/// - A path that leads nowhere is tried once more in a later turn.
/// - A path that cannot be watched again because it is gone is reported, with its name, to
///   the controls of its parent directory that ask for IN_DELETE.
/// - A control that asks for IN_DELETE and could not watch its path again because that was
///   gone watches it as soon as another control watches an entry of it.
/// The end of a control that asks for IN_DELETE_SELF or IN_MOVE_SELF, and of a file system
/// that is unmounted, is always reported.
class EventLoop {
 public:
  /// Becomes the loop of the calling thread. Throws std::logic_error when the
  /// thread has one, std::system_error when the kernel refuses a descriptor.
  EventLoop();

  /// Chooses the constructor below.
  struct Unbound {};

  /// A loop that no thread owns: any thread may use it, one at a time. Its callbacks
  /// find it as the current loop; elsewhere a Use makes it current.
  explicit EventLoop(Unbound unbound);

  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// The calling thread's loop. Throws std::logic_error when it has none.
  static EventLoop& current();

  /// Turns until stop(), which may have been called before: then at once. Throws
  /// std::logic_error inside a callback, as turn() does.
  void run();

  /// Makes run() return after the turn it is in, and the turn end its wait. A
  /// stop() stays in force until a run() has returned for it; until then turn()
  /// does not wait. From any thread and from a signal handler, as long as the loop lives:
  /// run() may return, and its thread go on, before a stop() on another thread has returned.
  /// So that thread has to be done (joined, say), and the handler removed, before the loop is
  /// destroyed.
  void stop() noexcept;

  /// One turn. Waits until a callback ran, `maxWaitSeconds` have passed, or
  /// stop(); a negative number waits for ever, 0.0 does not wait. Returns whether
  /// a callback ran.
  bool turn(double maxWaitSeconds);

  /// A descriptor that is readable when turn(0) has something to do: to be polled
  /// by another loop, which then calls turn(0). Stays the loop's. Not to be read.
  int fd() const noexcept;

  /// While one lives, this loop is the current one of the calling thread, so that the
  /// getters hand out its controls. They nest; the thread's former loop, if any, is
  /// current again afterwards. Ends on the thread that it began on, before the loop.
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
