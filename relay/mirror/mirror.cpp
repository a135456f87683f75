// SPDX-License-Identifier: MIT
#include "mirror/mirror.h"

#include <zorbe/exceptions.h>

#include <utility>

#include "foundation/log.h"
#include "server/address.h"

namespace Zorbe::Relay {

namespace {

using Log::kMilestone;
using Log::kNotable;

// Between two looks at what the publisher says about its table.
constexpr double kAskSeconds = 1;
constexpr uint64_t kBlockMilliseconds = 1000;

// Many mirrors that have missed the same change do not read everything at once.
constexpr double kSpreadSeconds = 2;

// Batches of changes that the server returns at once.
constexpr uint64_t kBatchCount = 32;

// Whether nothing was ever written into the table, or it will be replaced. One of this host's own
// must not become a copy by mistake.
bool isUnused(const std::string& table, const Table::Options& options,
              const Table::Schema& schema) {
  const Table::ReaderCore reader(table, options, Table::Schema{});
  const Table::Info info = reader.info();
  if (info.incarnation == 0) return true;
  std::vector<uint64_t> key((reader.schema().keyBytes + 7) / 8);
  uint64_t cursor = 0;
  if (info.origin == Table::Origin::local && reader.view().scan(cursor, key.data(), nullptr)) {
    throw UsageError("the table '" + table +
                     "' of this host has records of its own: mirror under "
                     "another name (--as), or remove it first (zorbe remove)");
  }
  return info.published == 0 || print(reader.schema()) != print(schema);
}

std::unique_ptr<LocalCopy> makeCopy(const std::string& table, Table::Options options,
                                    const Table::Schema& schema) {
  options.replaceOtherSchema = true;  // it is a copy
  try {
    return std::make_unique<LocalCopy>(table, options, schema);
  } catch (const DuplicateWriterException& other) {
    throw UsageError("the table '" + table + "' of this host has a writer already, " + other.owner +
                     ":" + std::to_string(other.pid) +
                     ": end it, or mirror under another name (--as)");
  }
}

}  // namespace

Mirror::Mirror(const Options& options, Brask::Platform::DebugHandler& log)
    : options_(options),
      log_(log),
      keys_(options.prefix, options.name),
      session_(options.server, *this, log),
      random_(std::random_device{}()) {
  originTimer_.start(kAskSeconds);
}

Mirror::~Mirror() {
  if (local_) local_->setOrigin(Table::Origin::mirroredLost);
}

// The server may be another one, or one that has lost something.
void Mirror::sessionBegan() {
  source_.doubt();
  doubtful_.reset();
  ask();
}

std::optional<Progress> Mirror::progress() const {
  if (!isTransfer_) return std::nullopt;
  return Progress{"receiving", local_->taken(), serversRecords_, local_->taken()};
}

void Mirror::sessionEnded() {
  isTransfer_ = false;
  askTimer_.cancel();
  transferTimer_.cancel();
}

void Mirror::ask() {
  askedAt_ = Clock::now();
  session_.send(askAbout(keys_), [this](const Reply& reply) { takeAbout(reply); });
}

void Mirror::askAgain() {
  askTimer_.start(kAskSeconds);
}

// Logs a problem once, and leads to another look later. False without one.
bool Mirror::findProblem(const std::string& problem) {
  if (std::exchange(lastProblem_, problem) != problem && !problem.empty()) {
    ZORBE_LOG(log_, kNotable, options_.name << ": " << problem);
  }
  if (problem.empty()) return false;
  askAgain();
  return true;
}

void Mirror::takeAbout(const Reply& reply) {
  if (reply.isError()) return session_.restart(std::string(reply.text()));
  source_.see(parseAbout(reply));
  isAboutNewer_ = true;
  if (source_.about().format.empty()) {
    findProblem("the server has no such table yet");
    return;
  }
  if (findProblem(source_.isOfThisFormat()
                      ? ""
                      : "the server has it in the format '" + source_.about().format +
                            "' of another version of the relay")) {
    return;
  }
  goOn();
}

void Mirror::goOn() {
  const bool isOther = !local_ || print(local_->schema()) != source_.about().schema;
  if (local_ && isOther && !source_.isRestored(position_)) return wait();
  if (isOther) openLocal(*parseSchema(source_.about().schema));
  settle();
  if (!isMissing_) return follow();
  if (!mayTransfer()) return wait();
  transferSoon();
}

// For the publisher to restore what the server has lost.
void Mirror::wait() {
  if (!findProblem(source_.isSetBack(position_) ? "the server has older records: they are not taken"
                                                : "")) {
    askAgain();
  }
}

void Mirror::openLocal(const Table::Schema& schema) {
  local_.reset();
  position_.reset();
  doubtful_.reset();
  isMissing_ = true;
  isUnused_ = isUnused(options_.table, options_.writing, schema);
  local_ = makeCopy(options_.table, options_.writing, schema);
  origin_.reset();
  showOrigin();
}

// The publisher changes the last batch and the stream in one step: what is newer is not from there.
void Mirror::settle() {
  if (!doubtful_) return;
  const Id entry = *std::exchange(doubtful_, std::nullopt);
  if (!(source_.last() < entry)) return miss();
  cursor_ = entry;
  countUnusable("batch of changes");
}

// All records are needed. They may be older than those of this table, if the server was set back.
void Mirror::miss() {
  ZORBE_LOG(log_, kMilestone, options_.table << ": has missed changes");
  if (local_->isCatchingUp()) {
    ZORBE_LOG(log_, kNotable,
              options_.table << ": changes are removed before they are read: the publisher needs a "
                                "larger --history");
  }
  isMissing_ = true;
  source_.doubt();
}

// A table that never had any records takes them as they are.
bool Mirror::mayTransfer() const {
  return isUnused_ || source_.isRestored(position_);
}

void Mirror::transferSoon() {
  if (!std::exchange(hasRead_, true)) return transfer();
  transferTimer_.start(std::uniform_real_distribution<>(0, kSpreadSeconds)(random_));
}

// Changes from here on are in the stream; which of them the records contain already is seen by
// their ids.
void Mirror::transfer() {
  session_.send(askAbout(keys_), [this](const Reply& reply) { beginTransfer(reply); });
}

void Mirror::beginTransfer(const Reply& reply) {
  const std::string schema = source_.about().schema;
  source_.see(parseAbout(reply));
  if (!source_.isOfThisFormat() || source_.about().schema != schema || !mayTransfer()) {
    return askAgain();
  }
  ++figures_.transfers;
  from_ = source_.last();
  local_->beginTransfer(from_);
  isUnused_ = false;
  isTransfer_ = true;
  session_.send(Command("HLEN").add(keys_.records), [this](const Reply& size) {
    serversRecords_ = static_cast<uint64_t>(size.integer());
  });
  askForRecords("0");
}

void Mirror::askForRecords(const std::string& cursor) {
  Command command("HSCAN");
  command.add(keys_.records).add(cursor).add("COUNT").add(scanCount(local_->schema()));
  session_.send(command, [this](const Reply& reply) { takeRecords(reply); });
}

void Mirror::takeRecords(const Reply& reply) {
  if (reply.size() != 2) return session_.restart(std::string(reply.text()));
  const std::string cursor(reply[0].text());
  if (cursor != "0") askForRecords(cursor);  // the server goes on meanwhile
  const Reply records = reply[1];
  for (size_t i = 0; i + 1 < records.size(); i += 2) {
    if (!local_->take(records[i].text(), records[i + 1].text())) countUnusable("record");
  }
  local_->publish();
  if (cursor != "0") return;
  session_.send(askAbout(keys_), [this](const Reply& about) { endTransfer(about); });
}

void Mirror::endTransfer(const Reply& reply) {
  isTransfer_ = false;
  const auto to = parseId(parseAbout(reply).last);
  if (!to) return ask();
  local_->endTransfer(*to);
  local_->publish();
  position_ = cursor_ = from_;
  isMissing_ = false;
  showCaughtUp();
  follow();
}

void Mirror::showCaughtUp() {
  if (local_->isCatchingUp()) return;
  ZORBE_LOG(log_, kMilestone, options_.table << ": has every record, " << local_->size());
  showOrigin();
}

// The server answers at once when there is a change, and otherwise after a second: then it says
// also that the publisher is there.
void Mirror::follow() {
  Command command("XREAD");
  command.add("COUNT").add(kBatchCount).add("BLOCK").add(kBlockMilliseconds).add("STREAMS");
  command.add(keys_.changes).add(print(cursor_));
  session_.send(command, [this](const Reply& reply) { takeBatches(reply); });
}

void Mirror::takeBatches(const Reply& reply) {
  if (reply.isError()) return session_.restart(std::string(reply.text()));
  const Reply entries = reply[0][1];
  const bool wasCatchingUp = local_->isCatchingUp();
  for (size_t i = 0; !doubtful_ && i < entries.size(); ++i) takeBatch(entries[i]);
  local_->publish();
  if (wasCatchingUp) showCaughtUp();
  // What was the last batch before the server was asked for the next one is not there.
  const bool isBehind = isAboutNewer_ && source_.last() != *position_;
  if (entries.size() == 0 && isBehind) miss();
  const bool isAskDue = entries.size() == 0 || doubtful_ ||
                        Clock::now() - askedAt_ > std::chrono::milliseconds(kBlockMilliseconds);
  if (!isAskDue) return follow();
  ask();
}

void Mirror::takeBatch(const Reply& entry) {
  const auto id = parseId(entry[0].text());
  const Reply fields = entry[1];
  if (!id) return session_.restart("the server's answer is no entry of a stream");
  if (fields[0].text() != "" || parseId(fields[1].text()) != position_) {
    doubtful_ = *id;
    return;
  }
  for (size_t i = 2; i + 1 < fields.size(); i += 2) {
    ++figures_.changes;
    if (!local_->change(*id, fields[i].text(), fields[i + 1].text())) countUnusable("change");
  }
  position_ = cursor_ = *id;
  local_->endBatch(*id);
  isAboutNewer_ = false;
}

void Mirror::countUnusable(const char* what) {
  if (figures_.unusable++ == 0) {
    ZORBE_LOG(log_, kNotable,
              options_.name << ": the server has a " << what
                            << " that is none of this table's; it is left out");
  }
}

void Mirror::showOrigin() {
  originTimer_.start(kAskSeconds);
  if (!local_) return;
  const bool isInStep = !isMissing_ && !local_->isCatchingUp();
  const bool isFresh = isInStep && session_.isReady() && source_.isLive();
  const Table::Origin origin = isFresh ? Table::Origin::mirrored : Table::Origin::mirroredLost;
  if (origin_ == origin) return;
  origin_ = origin;
  local_->setOrigin(origin);
}

}  // namespace Zorbe::Relay
