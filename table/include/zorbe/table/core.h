// SPDX-License-Identifier: MIT
//
// The table without types: keys as words, values as bytes. What Writer, Reader, LoopWriter and
// LoopReader are made of; programs use those.
//
// A key is passed as its bytes, padded with zero bytes to whole 64-bit words; a value as exactly
// `valueBytes` bytes.
#pragma once

#include <zorbe/table/error.h>
#include <zorbe/table/options.h>
#include <zorbe/table/schema.h>
#include <zorbe/table/window.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#pragma GCC visibility push(default)

namespace Zorbe::Table {

/// The writing side in an event loop of the contracts: everything runs on that loop's thread.
/// While the loop turns, it accepts and wakes readers, and publishes changes after a millisecond
/// at the latest.
class WriterCore {
 public:
  /// Becomes the table's writer: creates the table, or continues the existing one. Throws
  /// Zorbe::DuplicateWriterException when there is a writer, Error for anything else; an existing
  /// table is then unchanged. The loop's getters have to work on this thread.
  WriterCore(const std::string& name, const Options& options, const Schema& schema);
  WriterCore(const WriterCore&) = delete;
  WriterCore& operator=(const WriterCore&) = delete;

  /// Publishes, and stops being the writer.
  ~WriterCore();

  /// Stores a record. Throws Error (full, noSpace) with the table unchanged.
  void put(const uint64_t* key, const void* value);

  /// Erases a record; false when there is none.
  bool erase(const uint64_t* key);

  /// Shows followers what was put and erased, and wakes those that sleep.
  void publish();

  /// Copies a record, unless `value` is null; false when there is none.
  bool get(const uint64_t* key, void* value) const;

  /// The next record from `cursor` on, which starts at 0; false after the last one.
  bool scan(uint64_t& cursor, uint64_t* key, void* value) const;

  /// Records.
  uint64_t size() const;

  /// Says where the records come from; readers see it in Info.
  void setOrigin(Origin origin);

  /// In a child process after fork(2): closes the parent's lock and connections. Nothing else
  /// may be called afterwards, and the object must not be destroyed.
  void leaveToParent() noexcept;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// Reads a table, for one thread. Follows a new table in the old one's place.
class ViewCore {
 public:
  class Shared;

  /// Made by the readers' view() and by clone().
  explicit ViewCore(std::shared_ptr<Shared> shared);
  ViewCore(ViewCore&& other) noexcept;             ///< `other` may only be destroyed or assigned to
  ViewCore& operator=(ViewCore&& other) noexcept;  ///< as above
  ~ViewCore();

  /// Copies a record, unless `value` is null; false when there is none, or no table. Throws
  /// Zorbe::CorruptionDetectedException when the table contradicts itself.
  bool get(const uint64_t* key, void* value);

  /// Where a key's record is, for read(); nothing when there is none.
  struct Place {
    uint64_t incarnation;  ///< of the table
    uint32_t slot;         ///< its number
  };
  /// The place of a key's record; nothing when there is none.
  std::optional<Place> find(const uint64_t* key);

  /// The same as get(), without searching.
  bool read(const Place& place, const uint64_t* key, void* value);

  /// The next record from `cursor` on, which starts at 0; false after the last one.
  bool scan(uint64_t& cursor, uint64_t* key, void* value);

  /// Another one for any thread. Callable from any thread.
  ViewCore clone() const;

  /// What is mapped after the last call: View looks there before it calls. Stays where it is
  /// when this object is moved.
  const Detail::Window& window() const { return *window_; }

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
  const Detail::Window* window_;
};

/// The reading side in an event loop of the contracts: everything but view() runs on that loop's
/// thread. It connects, follows the next writer and a table that is removed and made again, and
/// creates nothing.
class ReaderCore {
 public:
  /// Looks for the table at once. Throws Error only for a name or options that cannot work (usage),
  /// and when the process has no descriptor left (system). The loop's getters have to work on this
  /// thread. A schema with no bytes of key stands for that of the first table that is found.
  ReaderCore(const std::string& name, const Options& options, const Schema& schema);
  ReaderCore(const ReaderCore&) = delete;
  ReaderCore& operator=(const ReaderCore&) = delete;
  ~ReaderCore();

  /// One change, without key and value.
  struct Change {
    Kind kind;          ///< what next() has set besides
    uint64_t sequence;  ///< of the record's last change; of the table for reset and complete
  };

  /// The next change, if there is one; never waits. `key` and `value` are set for `put`, `key`
  /// for `erased`. Throws once for each table that cannot be read: Error (schema, version,
  /// denied) or Zorbe::CorruptionDetectedException.
  std::optional<Change> next(uint64_t* key, void* value);

  /// Whether next() has something to deliver, or to throw.
  bool hasNext() const;

  /// Called from the loop for as long as hasNext() is true; null at first. Must not destroy this
  /// object.
  void onReady(void (*function)(void* context), void* context);

  /// Checks whether the table is still the one in its place. Returns whether another one was
  /// mapped.
  bool refresh();

  /// How the reader stands with its table.
  State state() const;

  /// What is known about the table now. All zero while there is none.
  Info info() const;

  /// Who reads the table; nothing while there is none.
  std::optional<Status> status() const;

  /// What this reader expects of tables. Does not change any more once it has bytes of key.
  const Schema& schema() const;

  /// For any thread.
  ViewCore view() const;

  /// In a child process after fork(2): see WriterCore.
  void leaveToParent() noexcept;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Zorbe::Table

#pragma GCC visibility pop
