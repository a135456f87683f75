// SPDX-License-Identifier: MIT
#include <zorbe/exceptions.h>
#include <zorbe/table/codec.h>
#include <zorbe/table/core.h>

#include <exception>
#include <utility>

#include "core/reader_connection.h"
#include "core/reader_info.h"
#include "core/root.h"
#include "core/root_watch.h"
#include "core/timer.h"
#include "core/view_shared.h"
#include "core/writer_link.h"
#include "foundation/log.h"
#include "memory/follower.h"
#include "memory/status.h"

namespace Zorbe::Table {

namespace {

// Between two looks while the table, its writer or the watch is missing.
constexpr double kRetrySeconds = 0.25;
// Changes of a directory come in groups: one look after the last of them.
constexpr double kSettleSeconds = 0.01;

Kind kindOf(Follower::Kind kind) {
  switch (kind) {
    case Follower::Kind::kPut:
      return Kind::put;
    case Follower::Kind::kErased:
      return Kind::erased;
    case Follower::Kind::kReset:
      return Kind::reset;
    case Follower::Kind::kComplete:
      break;
  }
  return Kind::complete;
}

}  // namespace

/// Every event (a kick, the end of a connection, a change of the directory, a timer) leads to
/// look(), which compares the state with what it should be. Neither the order of events nor a
/// second report of one matters.
class ReaderCore::Impl : public ReaderConnection::Owner, public RootWatch::Owner {
 public:
  Impl(const std::string& name, const Options& options, const Schema& schema, const RootPath& root)
      : handler_(handlerOf(options)), root_(root), schema_(schema), watch_(root.path, *this) {
    options_.place = placeOf(name, root);
    options_.place.owner = options.owner;
    options_.hints = {options.populate, options.hugePages};
    makeConnection();
    look();
  }

  std::optional<Change> next(uint64_t* key, void* value) {
    if (trouble_) std::rethrow_exception(std::exchange(trouble_, nullptr));
    if (!follower_ || corrupt_) return std::nullopt;
    const std::optional<Follower::Change> change = advance(key, value);
    if (trouble_) std::rethrow_exception(std::exchange(trouble_, nullptr));
    if (!corrupt_ && !follower_->hasNext()) caughtUp();
    if (!change) return std::nullopt;
    return Change{kindOf(change->kind), change->sequence};
  }

  bool hasNext() const {
    return trouble_ != nullptr || (follower_ && !corrupt_ && follower_->hasNext());
  }

  void onReady(void (*function)(void*), void* context) {
    ready_ = function;
    readyContext_ = context;
    readyTimer_.startIfIdle(0.0);
  }

  bool refresh() {
    const uint64_t before = incarnation();
    look();
    return incarnation() != before;
  }

  State state() const {
    if (refused_) return State::refused;
    if (!reader_) return State::waiting;
    return connection_->isConnected() ? State::connected : State::orphaned;
  }

  Info info() const { return reader_ ? infoOf(*reader_, *follower_) : Info{}; }

  std::optional<Status> status() const {
    if (!reader_) return std::nullopt;
    return loadStatus(reader_->header());
  }

  void leaveToParent() noexcept { releaseInChild(connection_->descriptor()); }

  const std::shared_ptr<ViewCore::Shared>& shared() const { return shared_; }
  const Schema& schema() const { return schema_; }

  // The connection and the watch call these, objects that look() may replace. A lost connection
  // is not renewed at once: the writer may have a reason to end each one of this reader.
  void connectionChanged() override {
    const bool wasAccepted = std::exchange(isAccepted_, false);
    if (!connection_->isConnected()) lookWithin(wasAccepted ? kSettleSeconds : kRetrySeconds);
  }
  void kicked() override {
    isAccepted_ = true;
    if (reader_ && reader_->isRetired()) lookWithin(0.0);
    signalReadiness();
    reportIfCaughtUp();  // what there was no room for: the kick answers an earlier report
  }
  void rootChanged() override { lookWithin(kSettleSeconds); }

 private:
  void makeConnection() {
    connection_ = std::make_unique<ReaderConnection>(handler_, root_, counters_, *this);
  }

  uint64_t incarnation() const { return reader_ ? reader_->incarnation() : 0; }

  // A table that contradicts itself is reported once and tried again later: its writer restores
  // words that another process has overwritten.
  std::optional<Follower::Change> advance(uint64_t* key, void* value) {
    try {
      return follower_->next(key, value);
    } catch (const CorruptionDetectedException& failure) {
      corrupt_ = true;
      keepTrouble(failure.what());
    } catch (const Error& failure) {
      corrupt_ = true;
      keepTrouble(failure.what());
    }
    lookWithin(kRetrySeconds);
    return std::nullopt;
  }

  void caughtUp() {
    if (reader_->isRetired()) lookWithin(kSettleSeconds);
    const uint64_t position = follower_->position();
    if (position >= connection_->reported()) return connection_->report(position);
    // Another table, whose changes are counted from a lower number: report() needs a new
    // connection. Replaced later, since the connection may be calling the program that calls this.
    renewConnection_ = true;
    lookWithin(0.0);
  }

  void timeToLook() {
    if (std::exchange(renewConnection_, false)) makeConnection();
    look();
  }

  // Called in a catch block. Each text is thrown once.
  void keepTrouble(const std::string& what) {
    if (std::exchange(lastTrouble_, what) == what) return;
    trouble_ = std::current_exception();
    ZORBE_LOG(handler_, kNotable, "ReaderCore::keepTrouble() " << root_ << ": " << what);
  }

  void lookWithin(double seconds) {
    if (lookTimer_.isArmed() && lookSeconds_ <= seconds) return;
    lookSeconds_ = seconds;
    lookTimer_.start(seconds);
  }

  void look() {
    lookTimer_.cancel();
    watch_.set();
    corrupt_ = false;
    const bool isCurrent = reader_ && reader_->isInPlace();
    if (!isCurrent) openTable();
    if (reader_) connect();
    const bool isSettled = reader_ && connection_->isConnected() && watch_.isWatching() &&
                           !refused_ && reader_->isInPlace();
    if (!isSettled) lookWithin(kRetrySeconds);
    reportIfCaughtUp();
    signalReadiness();
  }

  // A new connection: the program, which has everything, does not call next() before it is woken,
  // and the writer wakes only those that have reported.
  void reportIfCaughtUp() {
    if (follower_ && !corrupt_ && connection_->isConnected() && !follower_->hasNext()) caughtUp();
  }

  void connect() {
    try {
      static_cast<void>(connection_->tryConnect());
    } catch (const Brask::Exception& failure) {
      ZORBE_LOG(handler_, kNotable, "ReaderCore::connect() " << root_ << ": " << failure.what());
    }
  }

  // Keeps the mapped table until there is another one to replace it.
  void openTable() {
    try {
      std::unique_ptr<TableReader> table = TableReader::open(options_);
      refused_ = false;
      if (table) adopt(std::move(table));
    } catch (const CorruptionDetectedException& failure) {
      keepTrouble(failure.what());
    } catch (const Error& failure) {
      refused_ = failure.code() != ErrorCode::system;
      keepTrouble(failure.what());
    }
  }

  void adopt(std::unique_ptr<TableReader> table) {
    if (schema_.keyBytes == 0) {
      Schema found = table->schema();  // a copy that fails must not leave a part of it
      schema_ = std::move(found);
    }
    if (!canRead(schema_, table->schema())) failSchema(options_.place, table->schema(), schema_);
    table->setValueBytes(schema_.valueBytes);
    shared_->set(table->clone());
    follower_.reset();
    reader_ = std::move(table);
    follower_.emplace(*reader_);
    lastTrouble_.clear();
    ZORBE_LOG(handler_, kMilestone,
              "ReaderCore::adopt() " << root_ << " incarnation:" << reader_->incarnation());
  }

  // Repeated on the next turn while changes are left: a reader that has not read all of them has
  // not reported, and is not kicked.
  void signalReadiness() {
    if (ready_ == nullptr || !hasNext()) return;
    ready_(readyContext_);
    if (hasNext()) readyTimer_.startIfIdle(0.0);
  }

  Brask::Platform::DebugHandler& handler_;
  RootPath root_;
  ReaderOptions options_;
  Schema schema_;
  Reader::Counters counters_{};
  std::shared_ptr<ViewCore::Shared> shared_ = std::make_shared<ViewCore::Shared>();
  std::unique_ptr<TableReader> reader_;
  std::optional<Follower> follower_;  // of reader_
  bool refused_ = false;              // this program cannot read the table in place
  bool corrupt_ = false;              // until the next look
  bool renewConnection_ = false;
  bool isAccepted_ = false;     // the writer has answered a report on this connection
  std::exception_ptr trouble_;  // for next() to throw
  std::string lastTrouble_;
  void (*ready_)(void*) = nullptr;
  void* readyContext_ = nullptr;
  double lookSeconds_ = 0;  // until the next look, when it was decided on
  Timer<Impl> lookTimer_{*this, &Impl::timeToLook};
  Timer<Impl> readyTimer_{*this, &Impl::signalReadiness};
  RootWatch watch_;
  std::unique_ptr<ReaderConnection> connection_;
};

ReaderCore::ReaderCore(const std::string& name, const Options& options, const Schema& schema)
    : impl_(std::make_unique<Impl>(name, options, schema, resolveRoot(name, options))) {}

ReaderCore::~ReaderCore() = default;

std::optional<ReaderCore::Change> ReaderCore::next(uint64_t* key, void* value) {
  return impl_->next(key, value);
}

bool ReaderCore::hasNext() const {
  return impl_->hasNext();
}

void ReaderCore::onReady(void (*function)(void*), void* context) {
  impl_->onReady(function, context);
}

bool ReaderCore::refresh() {
  return impl_->refresh();
}

State ReaderCore::state() const {
  return impl_->state();
}

Info ReaderCore::info() const {
  return impl_->info();
}

std::optional<Status> ReaderCore::status() const {
  return impl_->status();
}

const Schema& ReaderCore::schema() const {
  return impl_->schema();
}

ViewCore ReaderCore::view() const {
  return ViewCore(impl_->shared());
}

void ReaderCore::leaveToParent() noexcept {
  impl_->leaveToParent();
}

}  // namespace Zorbe::Table
