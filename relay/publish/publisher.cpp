// SPDX-License-Identifier: MIT
#include "publish/publisher.h"

#include <zorbe/table/error.h>

#include <algorithm>
#include <utility>

#include "foundation/log.h"

namespace Zorbe::Relay {

namespace {

using Log::kMilestone;
using Log::kNotable;
using Table::Kind;

constexpr double kBeatSeconds = 1;

// Of so many batches one is for what a comparison has found, however many changes there are.
constexpr uint64_t kBatchesForMissing = 4;

// After so many the loop turns.
constexpr int kChangesOfTurn = 4096;

}  // namespace

Publisher::Publisher(const Options& options, Brask::Platform::DebugHandler& log)
    : options_(options),
      keys_(options.prefix, options.name),
      log_(log),
      session_(options.server, *this, log),
      copy_(session_, keys_, options.history, *this) {
  openTable();
  beatTimer_.start(kBeatSeconds);
}

Publisher::Figures Publisher::figures() const {
  return {copy_.sentChanges(), comparisons_};
}

std::optional<Progress> Publisher::progress() const {
  if (!comparison_) return std::nullopt;
  if (!isEachServersSeen_) {
    return Progress{"comparing", comparison_->servers(), serversRecords_, comparison_->servers()};
  }
  const uint64_t visited = comparison_->visited();
  return Progress{"sending", visited, std::max(tableRecords_, visited), visited};
}

// With the description of the table that is found first.
void Publisher::openTable() {
  reader_ = std::make_unique<Table::ReaderCore>(options_.table, options_.reading, Table::Schema{});
  phase_ = Phase::kWaiting;
  caughtUp_ = 0;
  listen(true);
}

void Publisher::ready(void* self) {
  static_cast<Publisher*>(self)->advance();
}

// The reader calls for as long as it has something: not while that cannot be taken.
void Publisher::listen(bool isWanted) {
  reader_->onReady(isWanted ? ready : nullptr, this);
}

void Publisher::sessionBegan() {
  advance();
}

void Publisher::sessionEnded() {
  copy_.forget();
  comparison_.reset();
  batch_ = Batch();
  isAsked_ = isComparedAgain_ = isCompared_ = false;
  phase_ = Phase::kWaiting;
}

void Publisher::start() {
  const bool isReady = session_.isReady();
  if (reader_->info().incarnation == 0 || !isReady) return listen(isReady);
  incarnation_ = reader_->info().incarnation;
  schema_ = reader_->schema();
  key_.assign((schema_.keyBytes + 7) / 8, 0);
  value_.assign(schema_.valueBytes, '\0');
  phase_ = Phase::kDraining;
  toDrain_ = 2 * reader_->info().records;
  listen(true);
}

void Publisher::drain() {
  for (int i = 0; i < kChangesOfTurn; ++i) {
    const bool isOver = isDrained();
    if (phase_ != Phase::kDraining) return;  // the table cannot be read, or is another one
    if (!isOver) continue;
    phase_ = Phase::kClaiming;
    listen(false);
    return copy_.claim(schema_);
  }
}

// After every record twice, too: where changes follow faster than they are read, there is no end.
bool Publisher::isDrained() {
  const auto change = next();
  if (!change) return true;
  if (change->kind == Kind::reset) {
    if (isReplaced()) reopenTable();
    isPass_ = true;
    tableRecords_ = 0;
    return false;
  }
  if (change->kind == Kind::put && isPass_) ++tableRecords_;
  if (change->kind == Kind::complete) isPass_ = false;
  return change->kind == Kind::complete || toDrain_-- == 0;
}

void Publisher::claimed() {
  phase_ = Phase::kFollowing;
  beat();
  compare();
  advance();
}

void Publisher::compare() {
  ++comparisons_;
  comparison_.emplace(reader_->view(), schema_);
  isEachServersSeen_ = isComparedAgain_ = false;
  cursor_ = "0";
  session_.send(Command("HLEN").add(keys_.records), [this](const Reply& reply) {
    serversRecords_ = static_cast<uint64_t>(reply.integer());
  });
}

void Publisher::compareMore() {
  if (!isEachServersSeen_) return;
  if (comparison_->addMissing(batch_)) return;
  comparison_.reset();
  ZORBE_LOG(log_, kMilestone, options_.table << ": the server has every record");
  if (isComparedAgain_) compare();
}

// A table that contradicts itself is read again in a new session.
bool Publisher::tryToCompare(const std::function<void()>& step) {
  try {
    step();
  } catch (const Brask::Exception& failure) {
    session_.restart(failure.what());
  }
  return phase_ == Phase::kFollowing;
}

void Publisher::askForRecords() {
  isAsked_ = true;
  Command command("HSCAN");
  command.add(keys_.records).add(cursor_).add("COUNT");
  session_.send(command.add(scanCount(schema_)), [this](const Reply& reply) { seeRecords(reply); });
}

void Publisher::seeRecords(const Reply& reply) {
  isAsked_ = false;
  if (reply.size() != 2) return session_.restart(std::string(reply.text()));
  const Reply records = reply[1];
  const bool isCompared = tryToCompare([&] {
    for (size_t i = 0; i + 1 < records.size(); i += 2) {
      comparison_->seeServers(records[i].text(), records[i + 1].text(), batch_);
    }
  });
  if (!isCompared) return;
  cursor_ = reply[0].text();
  isEachServersSeen_ = cursor_ == "0";
  advance();
}

void Publisher::hasRoom() {
  advance();
}

void Publisher::advance() {
  if (phase_ == Phase::kWaiting) start();
  if (phase_ == Phase::kDraining) return drain();
  if (phase_ == Phase::kFollowing) sendChanges();
}

// The server's records are asked for behind the batch, which may have one that was erased since.
void Publisher::sendChanges() {
  while (copy_.hasRoomForBatch()) {
    const bool isForMissing =
        comparison_ && isEachServersSeen_ && ++batches_ % kBatchesForMissing == 0;
    while (!isForMissing && !batch_.isFull() && takeChange()) continue;
    if (phase_ != Phase::kFollowing) return;
    if (comparison_ && !batch_.isFull() && !tryToCompare([&] { compareMore(); })) return;
    const bool isIdle = batch_.isEmpty();
    if (!isIdle) copy_.append(batch_);
    if (comparison_ && !isEachServersSeen_ && !isAsked_) askForRecords();
    sayWhenCompared();
    if (isIdle) break;
  }
  listen(copy_.hasRoomForBatch());
}

// With the batch everything that a comparison has found is on its way.
void Publisher::sayWhenCompared() {
  if (comparison_ || std::exchange(isCompared_, true)) return;
  beatTimer_.start(0.0);
}

// What cannot be read is tried again by the reader; a table of another description by another one.
std::optional<Table::ReaderCore::Change> Publisher::next() {
  try {
    return reader_->next(key_.data(), value_.data());
  } catch (const Table::Error& failure) {
    ZORBE_LOG(log_, kNotable, failure.what());
    if (failure.code() == Table::ErrorCode::schema) reopenTable();
  } catch (const Brask::Exception& failure) {
    ZORBE_LOG(log_, kNotable, failure.what());
  }
  return std::nullopt;
}

// Of a pass over all records those are left out that have not changed since they were taken.
bool Publisher::takeChange() {
  const auto change = next();
  if (!change) {
    caughtUp_ = reader_->info().position;
    return false;
  }
  const std::string_view key(reinterpret_cast<const char*>(key_.data()), schema_.keyBytes);
  if (change->kind == Kind::put && (!isPass_ || change->sequence > caughtUp_)) {
    batch_.put(key, value_);
  }
  if (change->kind == Kind::erased) batch_.erase(key);
  if (change->kind == Kind::reset) return tookReset();
  if (change->kind == Kind::complete) isPass_ = false;
  return true;
}

// Erasures may have been missed: only a comparison finds them.
bool Publisher::tookReset() {
  if (isReplaced()) {
    reopenTable();
    return false;
  }
  isPass_ = true;
  if (comparison_) {
    isComparedAgain_ = true;
  } else {
    compare();
  }
  return true;
}

bool Publisher::isReplaced() const {
  return reader_->info().incarnation != incarnation_;
}

// The new table may have fields that the old one had not; the reader would leave them out. Answers
// that are still due are those of the old table.
void Publisher::reopenTable() {
  session_.restart(options_.table + ": the table was replaced");
  phase_ = Phase::kReopening;
  openTimer_.start(0.0);  // the reader is calling
}

void Publisher::fenced(const std::string& why) {
  end_ = why;
}

void Publisher::beat() {
  beatTimer_.start(kBeatSeconds);
  // A mirrored table passes on what is true of its own source.
  const bool isLive = reader_->state() == Table::State::connected &&
                      reader_->info().origin != Table::Origin::mirroredLost;
  copy_.beat(isLive, isCompared_);
}

}  // namespace Zorbe::Relay
