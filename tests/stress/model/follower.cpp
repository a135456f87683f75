// SPDX-License-Identifier: MIT
#include "follower.h"

#include <algorithm>

namespace Zorbe::Model {

void Follower::start(int length) {
  position_ = m_.at(At::kPublished, length - 1);
  for (Value key = 0; key < kKeys; ++key) known_[key] = truth_.newestOf(key, position_);
}

void Follower::enter(uint64_t stage) {
  stage_ = stage;
  rememberAll(16);
}

void Follower::rememberAll(uint64_t state) {
  state = mix(mix(state, stage_), position_);
  for (const size_t version : known_) state = mix(state, version);
  for (const size_t version : before_) state = mix(state, version);
  for (const bool reported : reported_) state = mix(state, reported ? 1 : 0);
  remember(state);
}

void Follower::beginScan() {
  const bool capacityFirst = p_.has(Mistake::kScanLoadsCapacityFirst);
  if (capacityFirst) capacity_ = load(At::kCapacity);
  if (!p_.has(Mistake::kScanLoadsPublishedLast)) position_ = load(At::kPublished);
  if (!capacityFirst) capacity_ = load(At::kCapacity);
  for (Value key = 0; key < kKeys; ++key) {
    if (known_[key] != kUnseen) before_[key] = std::max(before_[key], known_[key]);
  }
  known_.fill(kUnseen);
  inPass_ = false;
  reported_.fill(false);
}

void Follower::visitSlot(Value slot) {
  rememberAll(mix(slot, 11));
  const Record record = read(slot, 12);
  if (record.state == kLive) report(record);
}

void Follower::scan() {
  beginScan();
  for (Value slot = 0; slot < capacity_; ++slot) visitSlot(slot);
  if (p_.has(Mistake::kScanLoadsPublishedLast)) position_ = load(At::kPublished);
  rememberAll(13);
}

bool Follower::scanInSlices() {
  beginScan();
  for (Value slot = 0; slot < capacity_; ++slot) {
    visitSlot(slot);
    if (!passBelow(slot + 1)) return false;
    // The pass went by what changed in slots that are still to be visited: in new ones, too.
    if (!p_.has(Mistake::kSlicesKeepCapacity)) capacity_ = load(At::kCapacity);
  }
  rememberAll(13);
  return true;
}

const File& Follower::mapLog(Value generation) {
  for (;;) {
    const auto name = At::kLogName + static_cast<Location>(generation % 2);
    const Value number = load(name);
    if (number != 0 && m_.file(number - 1).generation == generation) {
      const File& file = m_.file(number - 1);
      if (load(file.magic) != 1) corrupt("the log has no magic");
      return file;
    }
    const Value newer = load(At::kLogGeneration);
    if (newer == generation) corrupt("the log that logGen names is not there");
    generation = newer;
  }
}

bool Follower::overrun(Value published, const File& log) const {
  return published - position_ > log.size ||
         (position_ + 1 < log.first && !p_.has(Mistake::kFirstUnchecked));
}

// A reset must have a reason: more changes had begun than the log holds entries.
bool Follower::reset() const {
  if (truth_.lastBegun(x_.horizon()) - position_ <= p_.logCapacity) {
    throw Violation("follower: is reset though it was not overrun");
  }
  return false;
}

bool Follower::pass() {
  if (!passBelow(kNoSlot)) return false;
  checkKnown();
  return true;
}

// Over what has changed in the first slots.
bool Follower::passBelow(Value slots) {
  Value generation = 0;
  const bool logFirst = p_.has(Mistake::kLogBeforePublished);
  if (logFirst) generation = load(At::kLogGeneration);
  const Value published = load(At::kPublished, unless(Mistake::kReadPublishedRelaxed));
  if (!logFirst) {
    generation = load(At::kLogGeneration, unless(Mistake::kReadLogGenerationRelaxed));
  }
  const File& log = mapLog(generation);
  if (overrun(published, log)) return reset();
  inPass_ = true;
  for (Value n = position_ + 1; n <= published; ++n) {
    const auto file = static_cast<uint64_t>(log.magic);
    rememberAll(mix(mix(mix(mix(n, published), file), slots), 14));
    if (!visit(n, published, log, slots)) return reset();
  }
  position_ = std::max(position_, published);
  inPass_ = false;
  reported_.fill(false);
  rememberAll(mix(slots, 15));
  return true;
}

// One entry of the log. False: it, or the slot that it leads to, was used again.
bool Follower::visit(Value n, Value published, const File& log, Value slots) {
  const Value entry = load(log.entry(n % log.size), unless(Mistake::kReadEntryRelaxed));
  const Value slot = entry % kSlotsInEntry;
  if (entry != entryOf(p_, n, slot) && !p_.has(Mistake::kTagUnchecked)) return false;
  if (slot >= slots) return true;
  const Record record = readChecked(slot, mix(mix(mix(n, published), entry), slots));
  const bool unexpected = record.sequence < n || record.sequence > published;
  if (unexpected && !p_.has(Mistake::kAliasIsCorrupt)) {
    // The tag may have come round again; then published has moved on by a whole log at least.
    if (load(At::kPublished) - n >= log.size) return false;
  }
  if (record.sequence < n) corrupt("a slot is older than its entry of the log");
  if (record.sequence - n >= log.size && !p_.has(Mistake::kReusedUnchecked)) return false;
  if (record.sequence > n && record.sequence <= published) return true;  // reported there
  report(record);
  return true;
}

void Follower::report(const Record& record) {
  if (record.key == 0 || record.key >= kKeys) throw Violation("follower: a key that never was");
  if (inPass_) {
    if (reported_[record.key]) return;  // once per pass
    reported_[record.key] = true;
  }
  size_t& known = known_[record.key];
  const size_t oldest = std::max(before_[record.key], known == kUnseen ? 0 : known);
  known = truth_.found(record, oldest);
}

// It has caught up: of no key is an older version known than the newest one up to here.
void Follower::checkKnown() const {
  for (Value key = 1; key < kKeys; ++key) {
    const size_t newest = truth_.newestOf(key, position_);
    if (known_[key] == kUnseen) {
      truth_.missing(key, std::max(newest, before_[key]));
    } else if (known_[key] < newest) {
      throw Violation("follower: a change was lost");
    }
  }
}

}  // namespace Zorbe::Model
