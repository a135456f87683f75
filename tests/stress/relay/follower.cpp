// SPDX-License-Identifier: MIT
#include "stress/relay/follower.h"

#include <zorbe/table/in_loop.h>

#include <unordered_map>
#include <unordered_set>

#include "stress/relay/role.h"

namespace Zorbe::Test::RelayChaos {
namespace {

class Follower {
 public:
  Follower(SharedState& shared, FollowerState& state, const Table::Options& options)
      : shared_(shared), state_(state), reader_(kTableName, options) {
    reader_.onReady([this] { drain(); });
  }

 private:
  void drain() {
    while (const auto change = reader_.next()) {
      ++state_.changes;
      apply(*change);
    }
    for (const Key key : touched_) compare(key);
    touched_.clear();
    state_.digest = digest_;
  }

  void apply(const Table::Change<Key, Record>& change) {
    switch (change.kind) {
      case Table::Kind::put:
        check(change.key, change.value);
        if (isPass_) seen_.insert(change.key);
        return set(change.key, change.value.number);
      case Table::Kind::erased:
        seen_.erase(change.key);
        return set(change.key, 0);
      case Table::Kind::reset:
        seen_.clear();
        isPass_ = true;
        return;
      case Table::Kind::complete:
        isPass_ = false;
        dropUnseen();
    }
  }

  void dropUnseen() {
    std::unordered_set<Key> unseen;
    for (const auto& entry : records_) {
      if (seen_.count(entry.first) == 0) unseen.insert(entry.first);
    }
    for (const Key key : unseen) set(key, 0);
    seen_.clear();
  }

  // What others have put on the server may come, but has to disappear: the digest shows it.
  void check(Key key, const Record& record) {
    if (key >= kKeys) return;
    const uint64_t greatest = KeyState::greatest(state_.keys[key]);
    const std::string what =
        "key " + std::to_string(key) + " has change " + std::to_string(record.number);
    if (!record.isOf(key) || record.number > shared_.changes) {
      state_.report(what + ", which was never written");
    } else if (record.number < greatest) {
      state_.report(what + " after change " + std::to_string(greatest));
    }
  }

  void set(Key key, uint64_t number) {
    touched_.insert(key);
    if (const auto before = records_.find(key); before != records_.end()) {
      digest_ -= mix(key, before->second);
      records_.erase(before);
    }
    if (number == 0) return;
    digest_ += mix(key, number);
    records_[key] = number;
  }

  // When everything that was published is applied: in between, an erasure may come after a put
  // that has followed it.
  void compare(Key key) {
    if (key >= kKeys) return;
    const uint64_t before = state_.keys[key];
    const auto record = records_.find(key);
    const bool isErased = record == records_.end();
    const uint64_t now = isErased ? KeyState::erased(before) : KeyState::put(record->second);
    if (!isErased && now < before) {
      state_.report("key " + std::to_string(key) + " has change " + std::to_string(record->second) +
                    " again, which was erased");
    }
    if (!isErased || before != 0) state_.keys[key] = now;
  }

  SharedState& shared_;
  FollowerState& state_;
  std::unordered_map<Key, uint64_t> records_;  // the number of each one's change
  std::unordered_set<Key> seen_;               // since a reset
  std::unordered_set<Key> touched_;            // since everything was applied
  bool isPass_ = false;                        // between reset and complete
  uint64_t digest_ = 0;
  Table::LoopReader<Key, Record> reader_;
};

}  // namespace

void runFollower(Channel& parent, SharedState& shared, unsigned mirror, const std::string& root) {
  Role role(root);
  const Follower follower(shared, shared.followers.at(mirror), role.options());
  role.run(parent);
}

}  // namespace Zorbe::Test::RelayChaos
