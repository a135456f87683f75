// SPDX-License-Identifier: MIT
#include <zorbe/exceptions.h>
#include <zorbe/kick.h>
#include <zorbe/table/codec.h>
#include <zorbe/table/core.h>

#include <utility>

#include "core/peers.h"
#include "core/root.h"
#include "core/timer.h"
#include "core/writer_link.h"
#include "foundation/log.h"
#include "memory/table_writer.h"

namespace Zorbe::Table {

namespace {

// The delay after which a change is published, unless the program does it earlier.
constexpr double kPublishSeconds = 0.001;

// Between two checks that the files are in their place and unchanged.
constexpr double kKeepSeconds = 0.25;

// The same while there are readers, whose state the table contains.
constexpr double kStatusSeconds = 0.1;

WriterOptions writerOptions(const Place& place, const Options& options, const Schema& schema) {
  WriterOptions result;
  result.place = place;
  result.schema = schema;
  result.records = options.records;
  result.maxRecords = options.maxRecords;
  result.logEntries = options.logEntries;
  result.mode = options.mode;
  result.replaceOtherSchema = options.replaceOtherSchema;
  result.hints = {options.populate, options.hugePages};
  return result;
}

}  // namespace

/// The writer's end of the kick channel, and its table.
class WriterCore::Impl : public WriterKickSm {
 public:
  Impl(const std::string& name, const Options& options, const Schema& schema, const RootPath& root)
      : WriterKickSm(handlerOf(options), root, false),
        place_(placeOf(name, root)),
        schema_(schema) {
    createDirectory(place_);
    takeLock();
    table_ = TableWriter::open(writerOptions(place_, options, schema));
    logStart();
    writerSequence = table_->published();
    doEnableListen();
    keepWithin(kKeepSeconds);
  }

  ~Impl() override {
    try {
      publish();
    } catch (const std::exception&) {
      // Only a message can have failed: the changes were published before the kicks.
    }
    for (const auto& [fd, client] : readers) endConnection(fd);
    endPendingConnections(kickSocket);
  }

  int expectReconnects() override { return 0; }
  void readersChanged() override {
    if (!keepTimer_.isArmed()) return;  // not before the constructor has finished
    if (keepSeconds_ > kStatusSeconds) keepWithin(kStatusSeconds);  // never later than it was due
  }

  void put(const uint64_t* key, const void* value) {
    try {
      putWhereFilesAre(key, value);
    } catch (const Error& error) {
      throw Error(error.code(), error.table(), printKey(schema_, key), error.detail());
    }
    afterChange();
  }

  bool erase(const uint64_t* key) {
    const bool erased = table_->erase(key);
    if (erased) afterChange();
    return erased;
  }

  void publish() {
    publishTimer_.cancel();
    static_cast<void>(table_->publish());
    kick();
  }

  void leaveToParent() noexcept {
    releaseInChild(kickSocket);
    for (const auto& [fd, client] : readers) releaseInChild(fd);
    releaseInChild(table_->lockFd());
  }

  const TableWriter& table() const { return *table_; }
  TableWriter& table() { return *table_; }

 private:
  // A table that grows needs its directory, which may have been removed since keep() looked.
  void putWhereFilesAre(const uint64_t* key, const void* value) {
    try {
      return table_->put(key, value);
    } catch (const Error&) {
      if (table_->isInPlace()) throw;
    }
    recreate();
    table_->put(key, value);
  }

  void takeLock() {
    try {
      createKickSocket();
    } catch (const Brask::RuntimeException& failure) {
      throw Error(ErrorCode::system, place_.table, "", failure.what());
    }
  }

  void logStart() {
    if (table_->start() == TableWriter::Start::kReplaced) {
      ZORBE_LOG(*handler, kNotable,
                "WriterCore::logStart() replaced " << rootPath << ": " << table_->whyReplaced());
    } else {
      ZORBE_LOG(*handler, kMilestone,
                "WriterCore::logStart() " << rootPath << " records:" << table_->size()
                                          << " sequence:" << table_->published());
    }
  }

  // The table publishes by itself before its log is full.
  void afterChange() {
    kick();
    publishTimer_.startIfIdle(kPublishSeconds);
  }

  void kick() {
    if (writerSequence == table_->published()) return;
    writerSequence = table_->published();
    doKickSleepers();
  }

  void storeStatus() {
    Status status = peers_.look(readers, sleepingReaders);
    status.kicks = kickCount;
    table_->setStatus(status);
  }

  // Restores words that were overwritten, and makes files that were removed again, with all their
  // records. Tries again later when the directory cannot be made.
  void keep() {
    keepWithin(readers.empty() ? kKeepSeconds : kStatusSeconds);
    storeStatus();
    try {
      if (table_->isInPlace()) {
        table_->repairHeaders();
        table_->restoreFiles();
      } else {
        recreate();
      }
      lastFailure_.clear();
    } catch (const Brask::Exception& failure) {
      if (std::exchange(lastFailure_, failure.what()) == failure.what()) return;
      ZORBE_LOG(*handler, kFailure, "WriterCore::keep() " << rootPath << " " << failure.what());
    }
  }

  void keepWithin(double seconds) {
    keepSeconds_ = seconds;
    keepTimer_.start(seconds);
  }

  void recreate() {
    createDirectory(place_);
    table_ = table_->recreate();
    logStart();
    kick();
  }

  Place place_;
  Schema schema_;
  std::unique_ptr<TableWriter> table_;
  Peers peers_;
  std::string lastFailure_;
  double keepSeconds_ = 0;  // until keep(), when it was decided on
  Timer<Impl> publishTimer_{*this, &Impl::publish};
  Timer<Impl> keepTimer_{*this, &Impl::keep};
};

WriterCore::WriterCore(const std::string& name, const Options& options, const Schema& schema)
    : impl_(std::make_unique<Impl>(name, options, schema, resolveRoot(name, options))) {}

WriterCore::~WriterCore() = default;

void WriterCore::put(const uint64_t* key, const void* value) {
  impl_->put(key, value);
}

bool WriterCore::erase(const uint64_t* key) {
  return impl_->erase(key);
}

void WriterCore::publish() {
  impl_->publish();
}

bool WriterCore::get(const uint64_t* key, void* value) const {
  return impl_->table().get(key, value);
}

bool WriterCore::scan(uint64_t& cursor, uint64_t* key, void* value) const {
  return impl_->table().scan(cursor, key, value);
}

uint64_t WriterCore::size() const {
  return impl_->table().size();
}

void WriterCore::setOrigin(Origin origin) {
  impl_->table().setOrigin(origin);
}

void WriterCore::leaveToParent() noexcept {
  impl_->leaveToParent();
}

}  // namespace Zorbe::Table
