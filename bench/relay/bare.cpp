// SPDX-License-Identifier: MIT
#include "relay/bare.h"

#include <algorithm>

#include "format/format.h"
#include "format/scripts.h"
#include "relay/hosts.h"

namespace Bench {

namespace {

using Zorbe::Relay::Id;
using Zorbe::Relay::Keys;

constexpr uint64_t kEpoch = 1;
constexpr uint64_t kBatches = 100;
constexpr uint64_t kChanges = 1000;  // of a batch
constexpr uint64_t kMostUnanswered = 8;

// What the stream keeps: about as many bytes as a publisher's.
constexpr uint64_t kKept = 900;

std::string printId(uint64_t sequence) {
  return Zorbe::Relay::print(Id{kEpoch, sequence});
}

template <class Type>
std::string bytesOf(const Type& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

Keys keysOf(bool hasScript) {
  return Keys("zorbe:", hasScript ? "script" : "commands");
}

// Which words of the first command are ids.
struct Places {
  size_t before;
  size_t id;
  size_t oldest;
};

Places placesOf(bool hasScript) {
  return hasScript ? Places{7, 8, 9} : Places{7, 5, 4};
}

}  // namespace

BareClient::BareClient(const RedisServer& server, Form form)
    : connection_(server.connect()), form_(form) {
  digest_ = ask(connection_, {"SCRIPT", "LOAD", Zorbe::Relay::kAppendScript})->str;
  ask(connection_,
      {"HSET", keysOf(true).about, "epoch", std::to_string(kEpoch), "last", "1-0", "size", "0"});
  for (uint64_t number = 0; number < kBatches; ++number) batches_.push_back(makeBatch(number));
}

BareClient::Batch BareClient::makeBatch(uint64_t number) const {
  const bool hasScript = form_ == Form::kScript;
  const Keys keys = keysOf(hasScript);
  Batch batch;
  if (hasScript) {
    batch.add = {"EVALSHA", digest_, "3", keys.records, keys.changes, keys.about};
    for (const uint64_t word : {kEpoch, uint64_t{0}, uint64_t{0}, uint64_t{0}, kChanges}) {
      batch.add.push_back(std::to_string(word));
    }
  } else {
    batch.add = {"XADD", keys.changes, "MINID", "~", "", "", "", ""};
    batch.store = {"HSET", keys.records};
  }
  for (uint64_t record = number * kChanges; record < (number + 1) * kChanges; ++record) {
    const std::string key = bytesOf(keyOf(record));
    const std::string value = Zorbe::Relay::store({kEpoch, number}, bytesOf(Value{{record}}));
    batch.add.insert(batch.add.end(), {key, value});
    if (!hasScript) batch.store.insert(batch.store.end(), {key, value});
  }
  return batch;
}

void BareClient::sendBatch() {
  Batch& batch = batches_[sent_ % kBatches];
  const Places places = placesOf(form_ == Form::kScript);
  batch.add[places.before] = printId(sent_);
  batch.add[places.id] = printId(++sent_);
  batch.add[places.oldest] = printId(std::max(sent_, kKept) - kKept);
  Bench::send(connection_, batch.add);
  if (!batch.store.empty()) Bench::send(connection_, batch.store);
  int isDone = 0;
  while (isDone == 0 && redisBufferWrite(connection_.get(), &isDone) == REDIS_OK) continue;
}

void BareClient::waitForBatch() {
  nextReply(connection_);
  if (form_ == Form::kCommands) nextReply(connection_);
}

void BareClient::send(uint64_t changes) {
  const uint64_t batches = changes / kChanges;
  for (uint64_t each = 0; each < batches; ++each) {
    if (each >= kMostUnanswered) waitForBatch();
    sendBatch();
  }
  for (uint64_t each = 0; each < std::min(batches, kMostUnanswered); ++each) waitForBatch();
}

}  // namespace Bench
