// SPDX-License-Identifier: MIT
//
// Writer and Reader: a table in C++, without an event loop. Programs include <zorbe/table.h>, which
// has an example.
#pragma once

#include <zorbe/table/view.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#pragma GCC visibility push(default)

namespace Zorbe::Table {

/// WriterCore with a thread that serves the readers: what Writer is made of, and programs use that.
/// Any thread may call anything. In a child process after fork(2) every call throws Error (closed).
class ServedWriter {
 public:
  /// As WriterCore's; waits for another writer to end for Options::waitForLock seconds.
  ServedWriter(const std::string& name, const Options& options, const Schema& schema);
  ServedWriter(const ServedWriter&) = delete;
  ServedWriter& operator=(const ServedWriter&) = delete;

  /// Publishes, ends the thread and releases the lock; the files stay. Does nothing in a child.
  ~ServedWriter();

  void put(const uint64_t* key, const void* value);               ///< see WriterCore
  bool erase(const uint64_t* key);                                ///< see WriterCore
  void publish();                                                 ///< see WriterCore
  bool get(const uint64_t* key, void* value) const;               ///< see WriterCore
  bool scan(uint64_t& cursor, uint64_t* key, void* value) const;  ///< see WriterCore
  uint64_t size() const;                                          ///< see WriterCore
  void setOrigin(Origin origin);                                  ///< see WriterCore

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// ReaderCore with a loop of its own, which turns inside of the calls: what Reader is made of, and
/// programs use that. One thread at a time. In a child process after fork(2) every call but view()
/// throws Error (closed).
class PulledReader {
 public:
  /// As ReaderCore's.
  PulledReader(const std::string& name, const Options& options, const Schema& schema);
  PulledReader(const PulledReader&) = delete;
  PulledReader& operator=(const PulledReader&) = delete;

  /// Ends the connection; views stay usable. Does nothing in a child.
  ~PulledReader();

  /// Why waitFor() has returned.
  enum class Woken {
    kReady,        ///< next() has something
    kTimeout,      ///< the time is over
    kInterrupted,  ///< a signal handler has run
  };

  Woken waitFor(std::chrono::nanoseconds timeout);                     ///< see Reader's wait()
  bool wait(std::chrono::nanoseconds timeout);                         ///< see Reader
  std::optional<ReaderCore::Change> next(uint64_t* key, void* value);  ///< see ReaderCore
  int fd() const;                                                      ///< see Reader
  void process();                                                      ///< see Reader
  bool refresh();                                                      ///< see ReaderCore
  State state() const;                                                 ///< see ReaderCore
  Info info() const;                                                   ///< see ReaderCore
  std::optional<Status> status() const;                                ///< see ReaderCore
  const Schema& schema() const;                                        ///< see ReaderCore
  ViewCore view() const;                                               ///< see ReaderCore

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Zorbe::Table

#pragma GCC visibility pop

namespace Zorbe::Table {

/// The one writer of a table: see BasicWriter. A thread of its own accepts and wakes readers, and
/// publishes what was put a millisecond ago; it blocks all signals. Any thread may call anything.
/// The log handler is called by that thread, too, and has to allow it.
///
/// The destructor publishes and releases the writer lock. The files stay: readers keep the
/// records, and the next writer continues with them.
///
/// After fork(2) the object belongs to the parent: in the child every call throws Error (closed),
/// and the destructor changes nothing.
template <class K, class V>
class Writer : public BasicWriter<K, V, ServedWriter> {
 public:
  /// Becomes the writer of the table `name`: creates it, or continues the one that is there, at
  /// whichever instruction its writer ended. Throws Zorbe::DuplicateWriterException when there is
  /// another writer, and still is after Options::waitForLock seconds; Error for anything else. The
  /// table that is there then stays as it was.
  explicit Writer(const std::string& name, const Options& options = {})
      : BasicWriter<K, V, ServedWriter>(name, options) {}
};

/// One reader of a table. One thread at a time; other threads take a view(). It connects, follows
/// the next writer and a table that is removed and made again by itself, whenever wait(), next(),
/// process() or refresh() is called, and creates nothing. The functions of View need none of them
/// while the files stay where they are.
///
/// After fork(2) the object belongs to the parent: in the child the functions of View continue to
/// work, every other call throws Error (closed), and the destructor changes nothing.
template <class K, class V>
class Reader : public BasicReader<K, V, PulledReader> {
 public:
  /// See BasicReader for what it throws.
  explicit Reader(const std::string& name, const Options& options = {})
      : BasicReader<K, V, PulledReader>(name, options) {}

  /// Sleeps until next() has something, for `timeout` at most (std::chrono::nanoseconds::max():
  /// for ever). Returns whether next() has something; also, with false, when a signal handler
  /// has run.
  bool wait(std::chrono::nanoseconds timeout) { return this->core().wait(timeout); }

  /// For another event loop: a descriptor that is readable when process() has something to do or
  /// next() has something to deliver. Stays this object's.
  int fd() const { return this->core().fd(); }

  /// To be called when fd() is readable, and then next() until it has nothing.
  void process() { this->core().process(); }

  /// For another thread. Callable from any thread for as long as this object lives; the view may
  /// live longer, but follows no new table then.
  View<K, V> view() const { return this->clone(); }
};

}  // namespace Zorbe::Table
