// SPDX-License-Identifier: MIT
//
// The writing side of a table: files and memory, no sockets and no loop. Only the process that
// holds the writer lock may have one.
//
//     auto table = TableWriter::open(options);       // creates, or continues what is there
//     table->put(key, value);                        // get() of every process finds it
//     if (table->publish()) kick the followers;      // next() of every process finds it
//
// Keys are passed as whole words, padded with zero bytes. One thread at a time.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "memory/origin.h"
#include "memory/slot_allocator.h"
#include "memory/table_files.h"

namespace Zorbe::Table {

struct WriterOptions {
  Place place;  // the directory exists
  Schema schema;
  uint64_t records = 1024;  // room from the start
  uint64_t maxRecords = 0;  // 0: without a limit
  uint64_t logEntries = 0;  // rounded up to a power of two; 0: half of the records
  mode_t mode = 0644;       // of the files
  bool replaceOtherSchema = false;
  uint64_t firstSequence = 0;  // what a new table starts after
  uint64_t maxSlots = kMaxSlots;
  MappingHints hints{};
};

class TableWriter {
 public:
  /// What open() did.
  enum class Start {
    kCreated,    // there was none
    kContinued,  // the table of an earlier writer, in place
    kReplaced,   // it could not be continued: whyReplaced() says why
  };

  /// Becomes the writer of the table's files. Throws Zorbe::DuplicateWriterException when
  /// another process has them locked, Error otherwise; what is there then stays as it is.
  static std::unique_ptr<TableWriter> open(const WriterOptions& options);

  TableWriter(const TableWriter&) = delete;
  TableWriter& operator=(const TableWriter&) = delete;

  /// Stores a record; visible to get() at once, to followers after publish(). Throws Error when
  /// there is no room, the table then being unchanged.
  void put(const uint64_t* key, const void* value);

  /// Erases a record; false when there is none.
  bool erase(const uint64_t* key);

  /// Shows followers what was put and erased. False when there is nothing new.
  bool publish();

  /// Whether the key has a record, which is copied to `value` unless that is null.
  bool get(const uint64_t* key, void* value) const;

  /// The next record from slot `cursor` on, with its key; false after the last one.
  bool scan(uint64_t& cursor, uint64_t* key, void* value) const;

  /// Where the records come from, for readers.
  void setOrigin(Origin origin);

  /// Stores the status of the connections, for readers.
  void setStatus(const Status& status);

  /// The writer after the files were removed or replaced: new files of a new incarnation with the
  /// same records. This object may only be destroyed afterwards. Throws like open(), and is then
  /// unchanged.
  std::unique_ptr<TableWriter> recreate() const;

  /// Whether the directory still holds this table's files.
  bool isInPlace() const;

  /// Stores the constant words of the headers again, in case another process has overwritten them.
  void repairHeaders();

  /// Makes index and change log again whose files somebody has removed or replaced. Throws Error,
  /// and the table then stays as it was.
  void restoreFiles();

  /// Live records.
  uint64_t size() const { return size_; }
  uint64_t appended() const { return appended_; }
  uint64_t published() const { return published_; }
  uint64_t capacity() const { return slots_->capacity(); }
  Start start() const { return start_; }
  const std::string& whyReplaced() const { return whyReplaced_; }

  /// The descriptor that holds the lock.
  int lockFd() const { return lock_->fd(); }

  const WriterOptions& options() const { return options_; }
  const SlotFile& slots() const { return *slots_; }
  const IndexFile& index() const { return *index_; }
  const LogFile& log() const { return *log_; }

 private:
  explicit TableWriter(const WriterOptions& options);

  // table_opening.cpp
  bool tryOpen();
  bool tryCreate();
  void replaceOfAnotherUser(const std::string& why);
  void continueOrReplace();
  std::string openSlots();
  std::string refuseSchema(const Schema& found) const;
  void replace(const std::string& why, const TableWriter* source);
  File createNamed();
  void fillSlots(const TableWriter* source);
  uint64_t firstCapacity() const;
  void buildIndexAndLog();

  // table_takeover.cpp
  void takeOver();
  bool openIndex();
  bool openLog();
  void keepFinishedStores();
  void enterIfMissing(uint32_t slot);
  uint64_t adoptSlots();
  bool isIndexWhole();
  void startNewLog();

  // table_growth.cpp
  void checkLimit() const;
  uint32_t makeRoom();
  void growRecords();
  void rebuildIndex(uint64_t generation);
  void enterSlots(const IndexMemory& index) const;
  uint64_t wantedLogEntries() const;
  void enlargeLog();
  void replaceLog(uint64_t entries);

  // table_writer.cpp
  std::optional<uint32_t> find(const uint64_t* key, Hash hash) const;
  Hash hash(const uint64_t* key) const;
  void readKey(uint32_t slot, uint64_t* key) const;
  void storeNew(uint32_t slot, uint64_t sequence, const uint64_t* key, const void* value);
  void entombKeyOf(uint32_t slot);
  void noteChange(uint64_t sequence, uint32_t slot);
  void publishBeforeTheLogIsFull();
  uint64_t oldestLogged() const;
  SlotsHeader& header() const { return slots_->memory().header(); }

  WriterOptions options_;
  std::optional<File> lock_;  // an open file description of its own for `slots`: holds the lock
  std::optional<SlotFile> slots_;
  std::optional<IndexFile> index_;
  std::optional<LogFile> log_;
  SlotAllocator allocator_;
  uint64_t appended_ = 0;
  uint64_t published_ = 0;
  uint64_t size_ = 0;
  uint64_t usedBuckets_ = 0;  // entries and tombstones
  Start start_ = Start::kCreated;
  std::string whyReplaced_;
};

}  // namespace Zorbe::Table
