// SPDX-License-Identifier: MIT
#include "stress/chaos/reader.h"

#include <zorbe/table.h>
#include <zorbe/table/in_loop.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "stress/chaos/client_context.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr size_t kLeakedBytes = 1 << 16;
constexpr unsigned kChangesPerForgottenOne = 100;

/// The records as a follower has received them.
class Copy {
 public:
  Copy(Place& place, Flaw flaw) : place_(place), flaw_(flaw) {}

  void apply(const Table::Change<Key, Record>& change) {
    switch (change.kind) {
      case Table::Kind::put:
        if (!change.value.isWhole(change.key)) ++place_.torn;
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

  Place& place_;
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
  Follower(ClientContext& context, Place& place, Flaw flaw)
      : place_(place), flaw_(flaw), copy_(place, flaw), reader_(kTableName, context.options()) {}

  Reader& reader() { return reader_; }

  void drain() {
    isOrphaned_ |= reader_.state() == Table::State::orphaned;
    if (isAway()) return;
    while (const auto change = reader_.next()) copy_.apply(*change);
  }

  bool isAway() const { return flaw_ == Flaw::kStaysAway && isOrphaned_; }

  bool updateState() {
    const Table::Info info = reader_.info();
    bool news = update(place_.incarnation, info.incarnation);
    news |= update(place_.position, info.position);
    news |= update(place_.digest, copy_.digest());
    news |= update(place_.attached, reader_.state() == Table::State::connected);
    return news;
  }

 private:
  Place& place_;
  Flaw flaw_;
  bool isOrphaned_ = false;
  Copy copy_;
  Reader reader_;
};

/// Passes on that a descriptor is readable.
class Readable final : public Brask::Platform::FdEventHandler {
 public:
  Readable(int fd, std::function<void()> action)
      : action_(std::move(action)), control_(Brask::Platform::getFdControl(this)) {
    control_->watch(fd);
  }
  void fdEvent(int /*fd*/) override { action_(); }

 private:
  std::function<void()> action_;
  std::unique_ptr<Brask::Platform::FdControl> control_;
};

void runWithOwnLoop(ClientContext& context, Place& place, Flaw flaw) {
  Follower<Table::Reader<Key, Record>> follower(context, place, flaw);
  follower.drain();
  std::unique_ptr<Readable> readable;
  readable = std::make_unique<Readable>(follower.reader().fd(), [&] {
    follower.reader().process();
    follower.drain();
    if (follower.isAway()) readable.reset();
  });
  context.run([&] { return follower.updateState(); });
}

void runInProcessLoop(ClientContext& context, Place& place, Flaw flaw) {
  Follower<Table::LoopReader<Key, Record>> follower(context, place, flaw);
  follower.reader().onReady([&] { follower.drain(); });
  context.run([&] { return follower.updateState(); });
}

}  // namespace

void runReader(Channel& parent, Place& place, Kind kind, Flaw flaw) {
  ClientContext context(parent, place);
  kind == Kind::kOwnLoop ? runWithOwnLoop(context, place, flaw)
                         : runInProcessLoop(context, place, flaw);
}

}  // namespace Zorbe::Test::Chaos
