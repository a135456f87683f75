// SPDX-License-Identifier: MIT
#include "mirror/mirror.h"

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

// Records, and batches of changes, that the server returns at once.
constexpr uint64_t kScanCount = 1000;
constexpr uint64_t kBatchCount = 32;

// A table of this host's own must not become a copy by mistake.
void refuseOwnTable(const std::string& table, const Table::Options& options) {
  const Table::ReaderCore reader(table, options, Table::Schema{});
  if (reader.info().incarnation == 0 || reader.info().origin != Table::Origin::local) return;
  const Table::Schema schema = reader.schema();
  std::vector<uint64_t> key((schema.keyBytes + 7) / 8);
  uint64_t cursor = 0;
  if (!reader.view().scan(cursor, key.data(), nullptr)) return;
  throw UsageError("the table '" + table +
                   "' of this host has records of its own: mirror under "
                   "another name (--as), or remove it first (zorbe remove)");
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

void Mirror::sessionBegan() {
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
  const About before = std::exchange(about_, parseAbout(reply));
  if (about_.heartbeat != before.heartbeat) beatAt_ = Clock::now();
  isAboutNewer_ = true;
  if (about_.format.empty()) {
    findProblem("the server has no such table yet");
    return;
  }
  const auto schema = parseSchema(about_.schema);
  const bool isUnderstood = about_.format == kFormat && schema && parseId(about_.last);
  if (findProblem(isUnderstood ? ""
                               : "the server has it in the format '" + about_.format +
                                     "' of another version of the relay")) {
    return;
  }
  if (!local_ || print(local_->schema()) != about_.schema) openLocal(*schema);
  if (!position_) return transferSoon();
  follow();
}

void Mirror::openLocal(const Table::Schema& schema) {
  local_.reset();
  position_.reset();
  isTransfer_ = false;
  refuseOwnTable(options_.table, options_.writing);
  Table::Options writing = options_.writing;
  writing.replaceOtherSchema = true;  // it is a copy
  local_ = std::make_unique<LocalCopy>(options_.table, writing, schema);
  origin_.reset();
  showOrigin();
}

void Mirror::transferSoon() {
  if (!std::exchange(hasRead_, true)) return transfer();
  transferTimer_.start(std::uniform_real_distribution<>(0, kSpreadSeconds)(random_));
}

// Changes from here on are in the stream; which of them the records contain already is seen by
// their ids.
void Mirror::transfer() {
  ++figures_.transfers;
  isInStep_ = false;
  session_.send(askAbout(keys_), [this](const Reply& reply) {
    const About about = parseAbout(reply);
    const auto last = parseId(about.last);
    if (!last || about.schema != about_.schema) return askAgain();
    from_ = *last;
    local_->beginTransfer(from_);
    isTransfer_ = true;
    session_.send(Command("HLEN").add(keys_.records), [this](const Reply& size) {
      serversRecords_ = static_cast<uint64_t>(size.integer());
    });
    askForRecords("0");
  });
}

void Mirror::askForRecords(const std::string& cursor) {
  Command command("HSCAN");
  command.add(keys_.records).add(cursor).add("COUNT").add(kScanCount);
  session_.send(command, [this](const Reply& reply) { takeRecords(reply); });
}

void Mirror::takeRecords(const Reply& reply) {
  if (reply.size() != 2) return session_.restart(std::string(reply.text()));
  const Reply records = reply[1];
  for (size_t i = 0; i + 1 < records.size(); i += 2) {
    if (!local_->take(records[i].text(), records[i + 1].text())) countUnusable("record");
  }
  local_->publish();
  if (reply[0].text() != "0") return askForRecords(std::string(reply[0].text()));
  local_->endTransfer();
  local_->publish();
  isTransfer_ = false;
  position_ = from_;
  isInStep_ = true;
  ZORBE_LOG(log_, kMilestone, options_.table << ": has every record, " << local_->size());
  showOrigin();
  follow();
}

// The server answers at once when there is a change, and otherwise after a second: then it says
// also that the publisher is there.
void Mirror::follow() {
  Command command("XREAD");
  command.add("COUNT").add(kBatchCount).add("BLOCK").add(kBlockMilliseconds).add("STREAMS");
  command.add(keys_.changes).add(print(*position_));
  session_.send(command, [this](const Reply& reply) { takeBatches(reply); });
}

void Mirror::takeBatches(const Reply& reply) {
  if (reply.isError()) return session_.restart(std::string(reply.text()));
  const Reply entries = reply[0][1];
  bool isWhole = true;
  for (size_t i = 0; isWhole && i < entries.size(); ++i) isWhole = takeBatch(entries[i]);
  local_->publish();
  // What was the last batch before the server was asked for the next one is not there.
  const bool isBehind = isAboutNewer_ && about_.last != print(*position_);
  if (entries.size() == 0 && isBehind) isWhole = false;
  if (!isWhole) {
    ZORBE_LOG(log_, kMilestone, options_.table << ": has missed changes");
    position_.reset();
  }
  const bool isAskDue = entries.size() == 0 || !isWhole ||
                        Clock::now() - askedAt_ > std::chrono::milliseconds(kBlockMilliseconds);
  if (!isAskDue) return follow();
  ask();
}

// False when a batch before this one is missing.
bool Mirror::takeBatch(const Reply& entry) {
  const auto id = parseId(entry[0].text());
  const Reply fields = entry[1];
  if (!id || fields[0].text() != "" || fields[1].text() != print(*position_)) return false;
  for (size_t i = 2; i + 1 < fields.size(); i += 2) {
    ++figures_.changes;
    if (!local_->change(*id, fields[i].text(), fields[i + 1].text())) countUnusable("change");
  }
  position_ = *id;
  isAboutNewer_ = false;
  return true;
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
  const bool isFresh = isInStep_ && session_.isReady() && about_.source == "live" &&
                       Clock::now() - beatAt_ < kFreshHeartbeat;
  const Table::Origin origin = isFresh ? Table::Origin::mirrored : Table::Origin::mirroredLost;
  if (origin_ == origin) return;
  origin_ = origin;
  local_->setOrigin(origin);
}

}  // namespace Zorbe::Relay
