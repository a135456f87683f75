// SPDX-License-Identifier: MIT
//
// A table in shared memory: one process writes, any number of processes read.
//
//     struct Quote { double bid, ask; };
//     ZORBE_FIELDS(Quote, bid, ask);
//
//     Zorbe::Table::Writer<uint32_t, Quote> quotes("quotes");
//     quotes.put(7, {99.5, 100.5});
//     quotes.publish();
//
//     Zorbe::Table::Reader<uint32_t, Quote> reader("quotes");      // in another process
//     if (auto quote = reader.get(7)) show(*quote);
//     while (reader.wait(std::chrono::nanoseconds::max())) {
//       while (auto change = reader.next()) use(*change);
//     }
//
// No event loop is needed; see <zorbe/table/in_loop.h> for programs that turn one.
#pragma once

#include <zorbe/table/view.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#pragma GCC visibility push(default)

namespace Zorbe::Table {

/// WriterCore with a thread that serves the readers. Any thread may call anything.
class ServedWriter {
 public:
  ServedWriter(const std::string& name, const Options& options, const Schema& schema);
  ServedWriter(const ServedWriter&) = delete;
  ServedWriter& operator=(const ServedWriter&) = delete;
  ~ServedWriter();

  void put(const uint64_t* key, const void* value);
  bool erase(const uint64_t* key);
  void publish();
  bool get(const uint64_t* key, void* value) const;
  bool scan(uint64_t& cursor, uint64_t* key, void* value) const;
  uint64_t size() const;
  void setOrigin(Origin origin);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// ReaderCore with a loop of its own, which turns inside of the calls. One thread at a time.
class PulledReader {
 public:
  PulledReader(const std::string& name, const Options& options, const Schema& schema);
  PulledReader(const PulledReader&) = delete;
  PulledReader& operator=(const PulledReader&) = delete;
  ~PulledReader();

  bool wait(std::chrono::nanoseconds timeout);
  std::optional<ReaderCore::Change> next(uint64_t* key, void* value);
  int fd() const;
  void process();
  bool refresh();
  State state() const;
  Info info() const;
  std::optional<Status> status() const;
  ViewCore view() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Zorbe::Table

#pragma GCC visibility pop

namespace Zorbe::Table {

/// The one writer of a table. A thread of its own accepts and wakes readers, and publishes what
/// was put a millisecond ago; any thread may call anything. The log handler is called by that
/// thread, too.
///
/// The constructor creates the table, or continues the one that is there, at whichever
/// instruction its writer ended. It throws Zorbe::DuplicateWriterException when there is another
/// writer, and still is after Options::waitForLock; Error for anything else.
///
/// After fork(2) the object is the parent's: in the child every call throws Error (closed), and
/// the destructor leaves everything alone.
template <class K, class V>
class Writer : public BasicWriter<K, V, ServedWriter> {
 public:
  explicit Writer(const std::string& name, const Options& options = {})
      : BasicWriter<K, V, ServedWriter>(name, options) {}
};

/// One reader of a table. One thread at a time; other threads take a view(). It connects, follows
/// the next writer and a table that is removed and made again by itself, whenever wait(), next()
/// or process() is called, and creates nothing. get() and its like need none of them.
template <class K, class V>
class Reader : public View<K, V> {
 public:
  /// Throws Error for a name or options that cannot work; a table that is not there yet is
  /// waited for.
  explicit Reader(const std::string& name, const Options& options = {})
      : Reader(std::make_unique<PulledReader>(name, options,
                                              Codec<K, V>(options.keyName, name).schema())) {}

  /// Sleeps until next() has something, for `timeout` at most (std::chrono::nanoseconds::max():
  /// for ever). Returns whether next() has something; also, with false, when a signal handler
  /// has run.
  bool wait(std::chrono::nanoseconds timeout) { return core_->wait(timeout); }

  /// The next change, if there is one; never waits. Throws once for each table that this program
  /// cannot read: Error (schema, version, denied) or Zorbe::CorruptionDetectedException.
  std::optional<Change<K, V>> next() { return nextOf<K, V>(*core_); }

  /// For another event loop: a descriptor that is readable when process() has something to do or
  /// next() has something to deliver. Stays this object's.
  int fd() const { return core_->fd(); }

  /// To be called when fd() is readable, and then next() until it has nothing.
  void process() { core_->process(); }

  /// For programs that only get(): looks whether another table has taken the place of this one,
  /// and maps it then. Returns whether it did.
  bool refresh() { return core_->refresh(); }

  State state() const { return core_->state(); }
  Info info() const { return core_->info(); }

  /// Who reads the table; nothing while there is none.
  std::optional<Status> status() const { return core_->status(); }

  /// For another thread. Callable from any thread for as long as this object lives; the view may
  /// live longer, but follows no new table then.
  View<K, V> view() const { return this->clone(); }

 private:
  explicit Reader(std::unique_ptr<PulledReader> core)
      : View<K, V>(core->view()), core_(std::move(core)) {}

  std::unique_ptr<PulledReader> core_;
};

}  // namespace Zorbe::Table
