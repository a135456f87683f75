// SPDX-License-Identifier: MIT
#include "memory/follower.h"

namespace Zorbe::Table {

namespace {

// How many slots a scan visits before it looks into the log.
constexpr uint32_t kSlice = 256;

// New logs that may appear while one is opened.
constexpr int kLogAttempts = 16;

// How far ahead of the pass slots are fetched into the cache.
constexpr uint64_t kAhead = 8;

}  // namespace

std::optional<Follower::Change> Follower::next(uint64_t* key, void* value) {
  try {
    return advance(key, value);
  } catch (...) {
    reset();  // a change may be lost
    throw;
  }
}

std::optional<Follower::Change> Follower::advance(uint64_t* key, void* value) {
  for (;;) {
    if (mode_ == Mode::kBegin) return begin();
    if (cursor_ < passEnd_) {
      RecordOut out{key, value, reader_.valueBytes()};
      const Step step = stepPass(out);
      if (step == Step::kReset) return begin();
      if (step == Step::kChange) return changeOf(out);
    } else if (isPassDue()) {
      if (!beginPass()) return begin();
    } else if (mode_ == Mode::kFollow) {
      return std::nullopt;
    } else if (const std::optional<Change> change = scanSlots(key, value)) {
      return change;
    }
  }
}

uint64_t Follower::lag() const {
  const uint64_t published = reader_.published();
  return published > position_ ? published - position_ : 0;
}

Follower::Change Follower::begin() {
  position_ = cursor_ = passEnd_ = reader_.published();
  slot_ = 0;
  ahead_.clear();
  log_.reset();  // perhaps another one has its generation
  mode_ = Mode::kScan;
  return {Kind::kReset, position_};
}

// A scan also reads the log: a fast writer would have overwritten it by the end of the scan.
bool Follower::isPassDue() const {
  if (mode_ == Mode::kScan && slot_ % kSlice != 0) return false;
  return reader_.published() != position_;
}

// One slot; between slices the changes of visited slots come from the log.
std::optional<Follower::Change> Follower::scanSlots(uint64_t* key, void* value) {
  RecordOut out{key, value, reader_.valueBytes()};
  do {
    if (!reader_.readSlot(slot_, out)) {
      mode_ = Mode::kFollow;
      return Change{Kind::kComplete, position_};
    }
    ++slot_;
    if (out.state == kLive) return changeOf(out);
  } while (slot_ % kSlice != 0);
  return std::nullopt;
}

// False when the log does not hold everything since position_ any more.
bool Follower::beginPass() {
  const uint64_t end = reader_.published();
  if (!mapLog()) return false;
  if (end < position_ || end - position_ > log_->entries()) return false;
  if (position_ + 1 < log_->first()) return false;
  cursor_ = position_;
  passEnd_ = end;
  ahead_.clear();
  return true;
}

// After `published`: the log that is current then holds every entry up to it.
bool Follower::mapLog() {
  for (int attempt = 0; attempt < kLogAttempts; ++attempt) {
    const uint64_t generation = reader_.logGeneration();
    if (log_ && log_->generation() == generation) return true;
    std::optional<LogFile> log = reader_.openLog(generation);
    if (!log) continue;  // a still newer one has just taken its place
    log_.emplace(std::move(*log));
    return true;
  }
  return false;
}

Follower::Step Follower::stepPass(RecordOut& out) {
  const uint64_t sequence = ++cursor_;
  const uint64_t entry = acquire(log_->entry(sequence));
  if (!hasTag(entry, sequence)) return Step::kReset;
  reader_.prefetch(static_cast<uint32_t>(relaxed(log_->entry(sequence + kAhead))));
  Step step = Step::kNothing;
  const auto slot = static_cast<uint32_t>(entry);
  if (mode_ == Mode::kFollow || slot < slot_) {
    if (!reader_.readSlot(slot, out)) {
      reader_.failCorrupt("the change log names slot " + std::to_string(slot));
    }
    step = judge(slot, sequence, out);
  }
  if (cursor_ == passEnd_) position_ = passEnd_;
  return step;
}

// What the slot holds now is the change of this entry or a later one. What is neither of this
// pass: the entry may be of 2^32 changes later, with the same tag. Its acquire load then made a
// `published` visible that shows it.
Follower::Step Follower::judge(uint32_t slot, uint64_t sequence, const RecordOut& out) {
  const bool isOfThisPass = out.sequence >= sequence && out.sequence <= passEnd_;
  if (!isOfThisPass && reader_.published() - sequence >= log_->entries()) return Step::kReset;
  if (out.sequence < sequence || out.state == kFree) {
    reader_.failCorrupt("slot " + std::to_string(slot) + " is older than change " +
                        std::to_string(sequence) + " of the log");
  }
  if (out.sequence - sequence >= log_->entries()) return Step::kReset;
  if (out.sequence == sequence) return Step::kChange;
  if (out.sequence <= passEnd_) return Step::kNothing;  // that entry delivers it
  return ahead_.insert(slot).second ? Step::kChange : Step::kNothing;
}

Follower::Change Follower::changeOf(const RecordOut& out) {
  return {out.state == kLive ? Kind::kPut : Kind::kErased, out.sequence};
}

}  // namespace Zorbe::Table
