// SPDX-License-Identifier: MIT
#include "publish/server_copy.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>

#include "format/scripts.h"

namespace Zorbe::Relay {

namespace {

bool begins(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// As people call it; empty when it has no name.
std::string hostName() {
  char name[HOST_NAME_MAX + 1] = {};
  return ::gethostname(name, sizeof name - 1) == 0 ? name : "";
}

// Milliseconds since 1970, which hosts do not agree on exactly.
uint64_t wallClockMilliseconds() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

std::string randomText() {
  std::random_device device;
  std::string text;
  for (int i = 0; i < 4; ++i) text += std::to_string(device()) + " ";
  return text;
}

}  // namespace

ServerCopy::ServerCopy(Session& session, const Keys& keys, uint64_t history, Owner& owner)
    : session_(session), keys_(keys), history_(history), token_(randomText()), owner_(owner) {}

void ServerCopy::claim(const Table::Schema& schema) {
  schema_ = schema;
  forget();
  load(kClaimScript, &ServerCopy::claimDigest_, &ServerCopy::loadScripts);
}

void ServerCopy::forget() {
  isClaimed_ = false;
  unanswered_ = 0;
  kept_.clear();
  keptBytes_ = 0;
}

void ServerCopy::loadScripts() {
  load(kHeartbeatScript, &ServerCopy::heartbeatDigest_, nullptr);
  load(kAppendScript, &ServerCopy::appendDigest_, &ServerCopy::runClaim);
}

void ServerCopy::load(const char* script, std::string ServerCopy::*digest,
                      void (ServerCopy::*next)()) {
  session_.send(Command("SCRIPT").add("LOAD").add(script),
                [this, digest, next](const Reply& reply) {
                  if (reply.isError()) return session_.restart(std::string(reply.text()));
                  this->*digest = reply.text();
                  if (next != nullptr) (this->*next)();
                });
}

Command ServerCopy::script(const std::string& digest) const {
  Command command("EVALSHA");
  command.add(digest).add("3").add(keys_.records).add(keys_.changes).add(keys_.about);
  return command;
}

void ServerCopy::runClaim() {
  Command command = script(claimDigest_);
  // Also where the clock was set back and the server has lost the last epoch.
  const uint64_t leastEpoch = std::max(wallClockMilliseconds(), epoch_ + 1);
  command.add(kFormat).add(print(schema_)).add(leastEpoch).add(history_);
  command.add(hostName()).add(static_cast<uint64_t>(::getpid())).add(ZORBE_VERSION).add(token_);
  command.add(epoch_ == 0 ? "" : std::to_string(epoch_));
  session_.send(command, [this](const Reply& reply) { takeClaim(reply); });
}

void ServerCopy::takeClaim(const Reply& reply) {
  const std::string_view text = reply.text();
  if (reply.isError() && begins(text, "FORMAT ")) {
    return owner_.fenced("the server has this table in the format " + std::string(text.substr(7)) +
                         " of another version of the relay: use that version, or remove the keys");
  }
  if (reply.isError()) return check(reply);
  const std::optional<Id> first = parseId(std::string(reply[0].text()) + "-0");
  if (!first) return session_.restart("the server's answer is no claim");
  epoch_ = first->epoch;
  sequence_ = 0;
  before_ = reply[1].text();
  isClaimed_ = true;
  owner_.claimed();
}

// The id of the oldest batch that the stream keeps with one more of `bytes`; empty while it keeps
// everything.
std::string ServerCopy::oldestToKeep(size_t bytes) {
  keptBytes_ += bytes;
  if (keptBytes_ <= history_) return "";
  while (keptBytes_ > history_ && kept_.size() > 1) {
    keptBytes_ -= kept_.front().bytes;
    kept_.pop_front();
  }
  return print(kept_.front().id);
}

void ServerCopy::append(Batch& batch) {
  const size_t bytes = batch.bytes();
  const Id id{epoch_, ++sequence_};
  kept_.push_back({id, bytes});
  Command command = script(appendDigest_);
  command.add(epoch_).add(before_).add(print(id));
  command.add(oldestToKeep(bytes));
  sentChanges_ += batch.changes();
  batch.moveTo(command, id);
  before_ = print(id);
  ++unanswered_;
  session_.send(command, [this](const Reply& reply) {
    --unanswered_;
    if (reply.isError()) return check(reply);
    owner_.hasRoom();
  });
}

void ServerCopy::beat(bool isSourceLive, bool isCompared) {
  if (!isClaimed_) return;
  Command command = script(heartbeatDigest_);
  command.add(epoch_).add(isSourceLive ? "live" : "lost").add(isCompared ? before_ : "");
  session_.send(command, [this](const Reply& reply) {
    if (reply.isError()) check(reply);
  });
}

// Anything else that the server refuses may be over soon: the next session compares everything.
void ServerCopy::check(const Reply& reply) {
  const std::string text(reply.text());
  if (!begins(text, "FENCED ")) return session_.restart(text);
  owner_.fenced("another publisher of this table has taken over; its epoch is " + text.substr(7));
}

}  // namespace Zorbe::Relay
