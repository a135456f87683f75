// SPDX-License-Identifier: MIT
#include "stress/chaos/reader.h"

#include <zorbe/table.h>
#include <zorbe/table/in_loop.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "stress/chaos/client_context.h"
#include "support/loop.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr size_t kLeakedBytes = 1 << 16;
constexpr unsigned kChangesPerForgottenOne = 100;

/// The records as a follower has received them.
class Copy {
 public:
  Copy(ProcessState& state, Flaw flaw) : state_(state), flaw_(flaw) {}

  void apply(const Table::Change<Key, Record>& change) {
    switch (change.kind) {
      case Table::Kind::put:
        if (!change.value.isWhole(change.key)) ++state_.torn;
        if (flaw_ == Flaw::kForgetsChanges && ++changes_ % kChangesPerForgottenOne == 0) return;
        into()[change.key] = change.value.number;
        return;
      case Table::Kind::erased:
        into().erase(change.key);
        return;
      case Table::Kind::reset:
        fresh_.clear();
        isFollowingAgain_ = true;
        if (flaw_ == Flaw::kLeaksDescriptors) leakDescriptor();
        if (flaw_ == Flaw::kLeaksMemory) leaked_.emplace_back(kLeakedBytes, 'x');
        return;
      case Table::Kind::complete:
        records_ = std::move(fresh_);
        isFollowingAgain_ = false;
    }
  }

  uint64_t digest() const {
    Digest digest;
    for (const auto& [key, number] : records_) digest.add(key, number);
    return digest.value();
  }

 private:
  using Records = std::unordered_map<Key, uint64_t>;

  Records& into() { return isFollowingAgain_ ? fresh_ : records_; }

  ProcessState& state_;
  Flaw flaw_;
  Records records_;
  Records fresh_;  // since the last reset, until it is complete
  bool isFollowingAgain_ = false;
  unsigned changes_ = 0;
  std::vector<std::string> leaked_;
};

template <class Reader>
class Follower {
 public:
  Follower(ClientContext& context, ProcessState& state, Flaw flaw)
      : state_(state), flaw_(flaw), copy_(state, flaw), reader_(kTableName, context.options()) {}

  Reader& reader() { return reader_; }

  void drain() {
    isOrphaned_ |= reader_.state() == Table::State::orphaned;
    if (isAway()) return;
    while (const auto change = reader_.next()) copy_.apply(*change);
  }

  bool isAway() const { return flaw_ == Flaw::kStaysAway && isOrphaned_; }

  bool updateState() {
    const Table::Info info = reader_.info();
    bool changed = update(state_.incarnation, info.incarnation);
    changed |= update(state_.position, info.position);
    changed |= update(state_.digest, copy_.digest());
    changed |= update(state_.attached, reader_.state() == Table::State::connected);
    return changed;
  }

 private:
  ProcessState& state_;
  Flaw flaw_;
  bool isOrphaned_ = false;
  Copy copy_;
  Reader reader_;
};

void runWithOwnLoop(ClientContext& context, ProcessState& state, Flaw flaw) {
  Follower<Table::Reader<Key, Record>> follower(context, state, flaw);
  follower.drain();
  FdProbe readable([&](int) {
    follower.reader().process();
    follower.drain();
    if (follower.isAway()) readable.control->unwatch();
  });
  readable.control->watch(follower.reader().fd());
  context.run([&] { return follower.updateState(); });
}

void runInProcessLoop(ClientContext& context, ProcessState& state, Flaw flaw) {
  Follower<Table::LoopReader<Key, Record>> follower(context, state, flaw);
  follower.reader().onReady([&] { follower.drain(); });
  context.run([&] { return follower.updateState(); });
}

}  // namespace

void runReader(Channel& parent, ProcessState& state, Kind kind, Flaw flaw) {
  ClientContext context(parent, state);
  kind == Kind::kOwnLoop ? runWithOwnLoop(context, state, flaw)
                         : runInProcessLoop(context, state, flaw);
}

}  // namespace Zorbe::Test::Chaos
