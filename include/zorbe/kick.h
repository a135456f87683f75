// SPDX-License-Identifier: MIT
//
// The kick channel of one table: readers report how far they have read, and the
// writer wakes those that sleep when it publishes something newer. One sequenced
// packet socket per reader, connected to the socket that is the writer's lock.
//
//     reader                                   writer
//       | ----------- connects ----------------> |  readersChanged
//       | ----------- 8 bytes: sequence -------> |  behind: kicked at once
//       | <---------- 1 byte: kick ------------- |  caught up: acknowledged, sleeps
//       |                                        |  publishes, doKickSleepers
//       | <---------- kick --------------------- |
//       |  reads the table                       |
//       | ----------- sequence ----------------> |  sleeps, or is kicked again
//
// Everything runs on the thread of the loop that the controls come from; nothing
// here may be shared between threads or carried over a fork(2).
#pragma once

#include <brask/platform.h>
#include <zorbe/counters.h>
#include <zorbe/debuggable.h>
#include <zorbe/export.h>
#include <zorbe/root_path.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

namespace Zorbe {

class ReaderKickClientSm;

/// The writer's end: holds the writer lock, accepts readers, and kicks those that
/// sleep. The table's writer derives from it.
///
///     createKickSocket()   become the writer, or throw
///     doEnableListen()     from now on the loop brings readers
///       ++writerSequence; doKickSleepers();    after each publish
///     deleteKickSocket()   (also by the destructor) stop being the writer
///
class ZORBE_EXPORT WriterKickSm : public Brask::Platform::TimeoutHandler,
                                  public Brask::Platform::FdEventHandler,
                                  public Brask::Debuggable {
 public:
  /// Copies `root`. A `localOnly` writer uses no socket: it takes no lock and has
  /// no readers. Opens nothing.
  WriterKickSm(Brask::Platform::DebugHandler& debugHandler, const RootPath& root, bool localOnly);

  WriterKickSm(const WriterKickSm&) = delete;
  WriterKickSm& operator=(const WriterKickSm&) = delete;

  /// Gives the lock up and closes every connection; `readersChanged` is not called.
  ~WriterKickSm() override;

  /// The wait for returning readers is over: calls `handleReaderConnectionTimeout`.
  void timeout() override;

  /// A reader is connecting: calls `handleReaderConnection`.
  void fdEvent(int fd) override;

  /// Asked once, when listening has started: nonzero when readers of an earlier
  /// writer are expected back, and `readersChanged` shall be called 30 seconds later.
  virtual int expectReconnects() = 0;

  /// The set of connections has changed, or the wait for returning readers is over.
  /// Called with the closed connection already destroyed. Must not destroy this object.
  virtual void readersChanged() = 0;

  /// Takes the writer lock. What Util::acquireWriterLock throws passes through:
  /// Zorbe::DuplicateWriterException, Brask::InvalidInitializeException,
  /// Brask::RuntimeException.
  void createKickSocket();

  /// Listens for readers. Throws Brask::RuntimeException when there is no socket yet
  /// or listen(2) fails; the lock is kept.
  void doEnableListen();

  /// Accepts one pending connection. A failing accept(2) is logged.
  void handleReaderConnection();

  /// Ends the wait for returning readers.
  void handleReaderConnectionTimeout();

  /// Kicks every sleeping reader once. Call it after `writerSequence` has advanced.
  void doKickSleepers();

  /// The lowest sequence that any connected reader has reported, 0 when one has not
  /// reported yet, all ones when there is no reader.
  uint64_t lowestSequence() const;

  /// Forgets and destroys one connection, then calls `readersChanged`.
  void doCloseReaderConnection(int fd, ReaderKickClientSm* client);

  /// Gives the lock up and closes every connection; `readersChanged` is not called.
  void deleteKickSocket();

  /// Always true.
  bool validateSocket() const;

 protected:
  friend class ReaderKickClientSm;

  RootPath rootPath;               ///< the table's
  bool kickSocketCreated = false;  ///< between createKickSocket and deleteKickSocket
  bool local;                      ///< uses no socket at all
  uint64_t writerSequence = 0;     ///< what the subclass has published; only it writes this
  uint64_t kickCount = 0;          ///< kicks sent, over all connections
  int kickSocket = -1;             ///< the writer lock, -1 when not held
  std::unique_ptr<Brask::Platform::FdControl>
      listenControl;  ///< of `kickSocket`; null while not listening
  std::unique_ptr<Brask::Platform::TimerControl>
      reconnectTimer;  ///< the wait for returning readers; null while not waiting
  std::unordered_map<int, ReaderKickClientSm*> readers;          ///< by descriptor; owns them
  std::unordered_map<int, ReaderKickClientSm*> sleepingReaders;  ///< those that have caught up
};

/// The writer's object for one connected reader. Made and destroyed by its
/// WriterKickSm; clients never construct one.
class ZORBE_EXPORT ReaderKickClientSm : public Brask::Platform::FdEventHandler,
                                        public Brask::Debuggable {
 public:
  /// Registers `fd` with the loop and, when that succeeded, owns it.
  ReaderKickClientSm(Brask::Platform::DebugHandler& debugHandler, WriterKickSm* listener, int fd);

  ReaderKickClientSm(const ReaderKickClientSm&) = delete;
  ReaderKickClientSm& operator=(const ReaderKickClientSm&) = delete;

  /// Closes the connection.
  ~ReaderKickClientSm() override;

  /// The reader has reported or disconnected: calls `handleReaderData`.
  void fdEvent(int fd) override;

  /// Reads all pending reports and answers the last. Any violation of the protocol
  /// ends the connection, and with it this object. Of more than 1,024 pending reports
  /// it reads and answers the first 1,024; the rest brings the next event.
  void handleReaderData();

  /// Sends one kick. A failure is logged; the connection stays.
  void kick();

  uint64_t sequence = 0;                                  ///< the last report, 0 before the first
  WriterKickSm* owner;                                    ///< not owned
  std::unique_ptr<Brask::Platform::FdControl> fdControl;  ///< holds the connection
  bool acknowledged = false;                              ///< at least one kick was sent
};

/// The reader's end: one connection to the writer. The table's reader derives from
/// it. It never reconnects by itself: the subclass calls `doConnect` when it wants to.
///
///     doConnect()
///       writerConnectionChanged()   connected: the subclass sends its first report
///       writerAcknowledged()        the first batch of kicks; runs no pass, so the
///                                   subclass runs one itself (it may hold the kick
///                                   of a publish that the first report missed)
///       readerSequence()            every later batch: read the table, say how far
///       writerConnectionChanged()   connection lost
///
/// The subclass must not destroy this object from within these calls.
class ZORBE_EXPORT ReaderKickSm : public Brask::Platform::TimeoutHandler,
                                  public Brask::Platform::FdEventHandler,
                                  public Brask::Debuggable {
 public:
  /// Copies `root`; `readerCounters` has to outlive this object. Opens no socket.
  ReaderKickSm(Brask::Platform::DebugHandler& debugHandler, const RootPath& root,
               Reader::Counters& readerCounters);

  ReaderKickSm(const ReaderKickSm&) = delete;
  ReaderKickSm& operator=(const ReaderKickSm&) = delete;

  /// Closes the connection; calls nothing of the subclass.
  ~ReaderKickSm() override;

  /// A deferred pass is due: calls `doConquer`.
  void timeout() override;

  /// Reads the table and returns the writer's sequence up to which it was read.
  /// Called at the start of every pass. May throw CorruptionDetectedException, which
  /// is logged; every other exception leaves the pass. In both cases nothing is
  /// reported, and the writer, which waits for a report, sends no further kick:
  /// call `doConquer` later, from a timer, or close the connection and connect again.
  ///
  /// A return value below the writer's sequence brings the next kick at once. A
  /// reader that returns the same value again and again, since it reads another table
  /// than the writer's, keeps itself and the writer busy for ever.
  virtual uint64_t readerSequence() = 0;

  /// The connection has come up, or was lost: `connected` says which.
  virtual void writerConnectionChanged() = 0;

  /// The first kicks of this connection have arrived.
  virtual void writerAcknowledged() = 0;

  /// A label by which the client's diagnostics name this reader.
  virtual std::string readerName() const = 0;

  /// Kicks have arrived or the writer has ended: calls `handleKickFromWriter`.
  void fdEvent(int fd) override;

  /// One attempt to reach the writer. A refused connection is logged and leaves the
  /// object disconnected. Throws Brask::RuntimeException when no socket can be had.
  /// Blocks while a stopped writer's queue of pending connections is full.
  void doConnect();

  /// Closes the connection; unless `detaching`, calls `writerConnectionChanged`.
  void doCloseWriterConnection(bool detaching);

  /// Reports a sequence, if connected. Throws Brask::RuntimeException when it is lower
  /// than the one reported last, on this or an earlier connection.
  void sendSequence(const uint64_t& sequence);

  /// One pass: asks `readerSequence` and reports the answer.
  void doConquer();

  /// Reads all pending kicks, of more than 1,024 records the first 1,024; the first batch
  /// acknowledges, a later one runs a pass.
  void handleKickFromWriter();

  /// Suspends reporting (false), or resumes it with a pass on the next turn (true).
  void notifying(bool on);

 protected:
  RootPath rootPath;          ///< the table's
  bool initialized = false;   ///< construction is finished
  bool connected = false;     ///< a connection to the writer is up
  bool acknowledged = false;  ///< the first kicks of this connection have arrived
  bool enabled = false;       ///< set by the subclass: kicks are read and passes run. Left false
                              ///< on a connection, unread kicks keep waking the loop.
  bool conquerAgain = false;  ///< set by the subclass: not done yet, run another pass and
                              ///< report after that
  bool notificationsDisabled = false;  ///< between notifying(false) and notifying(true)
  uint64_t sentSequence = 0;           ///< the last report; survives connections
  std::unique_ptr<Brask::Platform::TimerControl> timerControl;  ///< for deferred passes
  std::unique_ptr<Brask::Platform::FdControl> fdControl;        ///< holds the connection
  Reader::Counters& counters;                                   ///< the client's
};

}  // namespace Zorbe
