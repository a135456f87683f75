// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <zorbe/debuggable.h>
#include <zorbe/export.h>
#include <zorbe/root_path.h>

#include <memory>
#include <string>

namespace Zorbe {

/// Notifies a reader of the end of the table's writer: holds a connection to the writer's
/// socket, over which nothing is ever sent, and reports its end.
///
///     idle -- doConnect() --> watching -- connection ends --> writerUnlocked(), idle
///       |
///       +---- doConnect(), no writer --> 0.1 s --> writerUnlocked(), idle
///
/// The connection is an ordinary one to the writer, which cannot tell it from a reader that
/// has not reported yet: for as long as it is open, WriterKickSm::lowestSequence is 0.
///
/// Everything runs on the thread of the loop that the controls come from; nothing here may
/// be shared between threads or carried over a fork(2).
class ZORBE_EXPORT WriterUnlockSm : public Brask::Platform::TimeoutHandler,
                                    public Brask::Platform::FdEventHandler,
                                    public Brask::Debuggable {
 public:
  /// Copies `root`; `label` names this object in messages. Opens no socket.
  WriterUnlockSm(Brask::Platform::DebugHandler& debugHandler, const std::string& label,
                 const RootPath& root);

  WriterUnlockSm(const WriterUnlockSm&) = delete;
  WriterUnlockSm& operator=(const WriterUnlockSm&) = delete;

  /// Closes the connection; never calls `writerUnlocked`.
  ~WriterUnlockSm() override;

  /// The delayed report of a writer that was not there: calls `notifyUnlocked`.
  void timeout() override;

  /// Something has happened to the connection: calls `handleFdEvent`.
  void fdEvent(int fd) override;

  /// The writer has ended, or was not there. Called from the loop only, never from inside
  /// `doConnect`, so that it may call `doConnect` again. Must not destroy this object.
  virtual void writerUnlocked() = 0;

  /// One attempt to reach the writer. Without one, `writerUnlocked` follows 0.1 seconds
  /// later. Called while connected, it watches a second connection and leaves the first open:
  /// call `doDisconnect` before.
  ///
  /// Throws Brask::RuntimeException when no socket can be had, Zorbe::ConnectionException
  /// when the connection fails for any other reason than that there is no writer. Blocks
  /// while a stopped writer's queue of pending connections is full.
  void doConnect();

  /// Closes the connection, if there is one. A delayed report stays due.
  void doDisconnect();

  /// Closes the connection and calls `writerUnlocked`.
  void notifyUnlocked();

  /// Reads the connection to find out whether the writer has ended. Reads at most 1,024
  /// records; the rest brings the next event.
  void handleFdEvent();

 protected:
  std::string instanceName;                                     ///< names this object in messages
  RootPath rootPath;                                            ///< the table's
  std::unique_ptr<Brask::Platform::TimerControl> timerControl;  ///< for the delayed report
  std::unique_ptr<Brask::Platform::FdControl> fdControl;        ///< holds the connection
};

}  // namespace Zorbe
