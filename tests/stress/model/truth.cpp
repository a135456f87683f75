// SPDX-License-Identifier: MIT
#include "truth.h"

#include <algorithm>

namespace Zorbe::Model {
namespace {

std::string keyName(Value key) {
  return std::string("key ") + static_cast<char>('A' + key - 1);
}

Record recordIn(const Memory& memory, const Protocol& protocol, Value slot) {
  return Model::recordIn(memory, protocol, slot, memory.size() - 1);
}

bool heldBy(const Memory& memory, const Protocol& protocol, const Operation& operation) {
  for (Value slot = 0; slot < memory.latest(At::kCapacity); ++slot) {
    const Record record = recordIn(memory, protocol, slot);
    if (record.sequence == operation.sequence && record.key == operation.key) return true;
  }
  return false;
}

void checkIndex(const Memory& memory, const Protocol& protocol, Value slot) {
  const File& index = memory.file(memory.latest(At::kIndexName) - 1);
  int entries = 0;
  for (Value i = 0; i < index.size; ++i) {
    const Value bucket = memory.latest(index.entry(i));
    if (bucket == kEmpty) break;
    entries += bucket == bucketOf(slot) ? 1 : 0;
  }
  const bool used = recordIn(memory, protocol, slot).state != kUnused;
  if (entries != (used ? 1 : 0)) {
    throw Violation("table: slot " + std::to_string(slot) + " has " + std::to_string(entries) +
                    " index entries");
  }
}

void checkSlot(const Memory& memory, const Protocol& protocol, const Truth& truth, Value slot) {
  const Record record = recordIn(memory, protocol, slot);
  if (memory.latest(At::guard(slot)) % 2 == 1) throw Violation("table: a guard is odd");
  if (record.state == kUnused) return;
  const Version& newest = truth.versions(record.key).back();
  if (record.sequence != newest.sequence || (record.state == kLive) != newest.live ||
      (newest.live && record.value != newest.value)) {
    throw Violation("table: a slot does not hold the newest record of " + keyName(record.key));
  }
}

}  // namespace

Record recordIn(const Memory& memory, const Protocol& protocol, Value slot, int last) {
  Words words{};
  for (int i = 0; i < protocol.words; ++i) {
    words[static_cast<size_t>(i)] = memory.at(At::word(slot, i), last);
  }
  return recordOf(words, protocol);
}

void settle(Memory& memory, const Protocol& protocol) {
  auto& operations = memory.operations;
  for (Operation& operation : operations) {
    if (operation.finished()) continue;
    if (operation.changesRecord() && !heldBy(memory, protocol, operation)) operation.kind = '-';
    operation.end = memory.size();
  }
}

void checkTable(const Memory& memory, const Protocol& protocol) {
  const Truth truth(memory);
  std::vector<int> slotsOf(kKeys, 0);
  for (Value slot = 0; slot < memory.latest(At::kCapacity); ++slot) {
    checkIndex(memory, protocol, slot);
    checkSlot(memory, protocol, truth, slot);
    const Record record = recordIn(memory, protocol, slot);
    if (record.state != kUnused && ++slotsOf[record.key] > 1) {
      throw Violation("table: " + keyName(record.key) + " has two slots");
    }
  }
  for (Value key = 1; key < kKeys; ++key) {
    if (truth.versions(key).back().live && slotsOf[key] == 0) {
      throw Violation("table: " + keyName(key) + " is lost");
    }
  }
  const Value published = memory.latest(At::kPublished);
  if (published > std::max(truth.lastSequence(), protocol.sequence)) {
    throw Violation("table: published is ahead of the last change");
  }
}

Truth::Truth(const Memory& memory) : versions_(kKeys, std::vector<Version>{{0, false, 0, 0}}) {
  for (const Operation& operation : memory.operations) {
    if (operation.changesRecord() || operation.kind == '-') begun_.push_back(operation);
    if (!operation.changesRecord() || !operation.finished()) continue;
    versions_[operation.key].push_back(
        {operation.sequence, operation.kind == 'p', operation.value, operation.end});
    if (operation.sequence <= lastSequence_) throw Violation("table: a sequence came twice");
    lastSequence_ = operation.sequence;
  }
}

Value Truth::lastBegun(int last) const {
  Value sequence = 0;
  for (const Operation& operation : begun_) {
    if (operation.logged <= last) sequence = std::max(sequence, operation.sequence);
  }
  return sequence;
}

size_t Truth::newestAt(Value key, int length) const {
  size_t newest = 0;
  const std::vector<Version>& all = versions(key);
  for (size_t i = 1; i < all.size() && all[i].end <= length; ++i) newest = i;
  return newest;
}

size_t Truth::newestOf(Value key, Value sequence) const {
  size_t newest = 0;
  const std::vector<Version>& all = versions(key);
  for (size_t i = 1; i < all.size() && all[i].sequence <= sequence; ++i) newest = i;
  return newest;
}

size_t Truth::found(const Record& record, size_t oldest) const {
  if (record.key == 0 || record.key >= kKeys) throw Violation("reader: a key that never was");
  const std::vector<Version>& all = versions(record.key);
  for (size_t i = 1; i < all.size(); ++i) {
    if (all[i].sequence != record.sequence || all[i].live != (record.state == kLive)) continue;
    if (all[i].live && all[i].value != record.value) continue;
    if (i < oldest) throw Violation("reader: a record older than what was there before");
    return i;
  }
  throw Violation("reader: a record that " + keyName(record.key) + " never held");
}

size_t Truth::missing(Value key, size_t oldest) const {
  const std::vector<Version>& all = versions(key);
  for (size_t i = oldest; i < all.size(); ++i) {
    if (!all[i].live) return i;
  }
  throw Violation("reader: " + keyName(key) + " is not found though it is there");
}

}  // namespace Zorbe::Model
