// SPDX-License-Identifier: MIT
//
// Everything that the writers of a scenario may leave in memory: without a kill, with the first
// writer killed before any of its stores, with the next one killed before any of its own, and so
// on; and for each of these the readers.
#include <algorithm>
#include <sstream>
#include <unordered_map>

#include "follower.h"
#include "scenario.h"
#include "writer.h"

namespace Zorbe::Model {
namespace {

std::vector<std::string> stepsOf(const std::string& script) {
  std::istringstream stream(script);
  std::vector<std::string> steps;
  for (std::string step; stream >> step;) steps.push_back(step);
  return steps;
}

class Search {
 public:
  Search(const Scenario& scenario, const Protocol& protocol, Figures& figures)
      : scenario_(scenario), p_(protocol), figures_(figures), steps_(stepsOf(scenario.script)) {}

  Finding explore(int kills) {
    kills_ = kills;
    try {
      Memory memory;
      Writer writer(memory, p_);
      writer.format();
      size_t number = 1000;
      for (const std::string& step : stepsOf(scenario_.setUp)) writer.run(step, number++);
      memory.setUp = memory.size();
      finish(memory, writer, 0, kills);
    } catch (const Violation& violation) {
      return {violation.what(), trace_};
    }
    return {};
  }

 private:
  // Lets the writer do the rest of the script, judges what it leaves, and kills it.
  void finish(Memory& memory, Writer& writer, size_t step, int kills) {
    const int begin = memory.size();
    run(memory, writer, step);
    read(memory, 2);
    kill(memory, begin, kills);
  }

  void run(Memory& memory, Writer& writer, size_t step) {
    traced(memory, [&] {
      for (; step < steps_.size(); ++step) writer.run(steps_[step], step);
      checkTable(memory, p_);
    });
  }

  void kill(const Memory& memory, int begin, int kills) {
    if (kills == 0) return;
    for (int at = begin; at < memory.size(); ++at) takeOver(memory.killedAt(at, {}), kills);
    for (int early = begin + 1; early < memory.size(); ++early)
      reorder(memory, begin, early, kills);
  }

  // A relaxed store may be made before earlier ones to other locations.
  void reorder(const Memory& memory, int begin, int early, int kills) {
    if (memory[early].release) return;
    for (int at = early - 1; at >= begin && at >= early - kWindow; --at) {
      if (memory[at].location == memory[early].location) return;
      takeOver(memory.killedAt(at, {early}), kills);
    }
  }

  // The next writer, which skips or repeats the step in which the last one was killed.
  void takeOver(const Memory& killed, int kills) {
    size_t next = 0;
    bool unfinished = false;
    for (const Operation& operation : killed.operations) {
      if (operation.step >= 1000) continue;
      next = operation.step + 1;
      unfinished = !operation.finished();
    }
    continueFrom(killed, next, kills);
    if (unfinished) continueFrom(killed, next - 1, kills);
  }

  void continueFrom(Memory memory, size_t step, int kills) {
    const int begin = memory.size();
    Writer writer(memory, p_);
    traced(memory, [&] {
      writer.takeOver();
      settle(memory, p_);
      checkTable(memory, p_);
    });
    run(memory, writer, step);
    const auto [seen, isNew] = seen_.try_emplace(hashOf(memory), 0);
    if (!isNew && seen->second >= kills) return;
    seen->second = kills;
    if (isNew) read(memory, kills == kills_ ? 2 : 1);
    kill(memory, begin, kills - 1);
  }

  template <typename Action>
  void traced(const Memory& memory, Action action) {
    try {
      action();
    } catch (const Violation&) {
      trace_ = Explorer(memory).trace();
      throw;
    }
  }

  static uint64_t hashOf(const Memory& memory) {
    uint64_t hash = 0;
    for (int i = 0; i < memory.size(); ++i) {
      hash = mix(mix(hash, static_cast<uint64_t>(memory[i].location)), memory[i].value);
    }
    for (const Operation& operation : memory.operations) {
      hash = mix(mix(hash, static_cast<uint64_t>(operation.end)), operation.sequence);
    }
    return hash;
  }

  // `rounds`: how often each reader looks. Where two writers were killed, once has to do.
  void read(const Memory& memory, uint64_t rounds) {
    ++figures_.histories;
    const Truth truth(memory);
    Explorer explorer(memory);
    try {
      explorer.run([&](Explorer& x) { readOnce(x, truth, rounds); });
    } catch (const Violation&) {
      trace_ = explorer.trace();
      throw;
    }
    figures_.runs += explorer.runs();
    figures_.states += explorer.states();
  }

  // Any reader, from any moment at which a writer had finished something.
  void readOnce(Explorer& x, const Truth& truth, uint64_t rounds) {
    const Memory& memory = x.memory();
    const auto& quiet = memory.quiet;
    const auto first = static_cast<size_t>(
        std::lower_bound(quiet.begin(), quiet.end(), memory.setUp) - quiet.begin());
    const int seen = quiet[first + x.choose(static_cast<unsigned>(quiet.size() - first))];
    x.see(seen);
    switch (x.choose(scenario_.keys.empty() ? 3 : 5)) {
      case 0:
        return follow(x, truth, seen, rounds);
      case 1:
        return scan(x, truth, seen, false);
      case 2:
        return scan(x, truth, seen, true);
      case 3:
        return lookUp(x, truth, seen, false, rounds);
      default:
        return lookUp(x, truth, seen, true, rounds);
    }
  }

  void scan(Explorer& x, const Truth& truth, int seen, bool inSlices) {
    Follower follower(x, p_, truth);
    follower.mapAsOf(seen);
    follower.enter(inSlices ? 1 : 2);
    if (!inSlices) follower.scan();
    if (!inSlices || follower.scanInSlices()) {
      follower.enter(3);
      follower.pass();
    }
  }

  void lookUp(Explorer& x, const Truth& truth, int seen, bool byHandle, uint64_t rounds) {
    const std::string& keys = scenario_.keys;
    const unsigned which = x.choose(static_cast<unsigned>(keys.size()));
    const auto key = static_cast<Value>(keys[which] - 'A' + 1);
    const int mapped = x.choose(2) == 0 ? x.memory().setUp : seen;
    const Value slot = byHandle ? slotAt(x.memory(), key, mapped) : kNoSlot;
    if (byHandle && slot == kNoSlot) return;
    Reader reader(x, p_, truth);
    reader.mapAsOf(mapped);
    size_t oldest = truth.newestAt(key, seen);
    for (uint64_t again = 0; again < rounds; ++again) {
      reader.remember(mix(mix(mix(key, oldest), again), slot));
      Record found;
      const bool there =
          byHandle && again == 0 ? reader.readHandle(slot, key, found) : reader.get(key, found);
      if (there && found.key != key) throw Violation("reader: another key's record");
      oldest = there ? truth.found(found, oldest) : truth.missing(key, oldest);
    }
  }

  Value slotAt(const Memory& memory, Value key, int seen) const {
    for (Value slot = 0; slot < kMaxSlots; ++slot) {
      const Record record = recordIn(memory, p_, slot, seen - 1);
      if (record.key == key && record.state == kLive) return slot;
    }
    return kNoSlot;
  }

  void follow(Explorer& x, const Truth& truth, int seen, uint64_t rounds) {
    Follower follower(x, p_, truth);
    follower.mapAsOf(seen);
    follower.start(seen);
    for (uint64_t round = 0; round < rounds; ++round) {
      follower.enter(4 + round);
      if (follower.pass()) continue;
      follower.enter(2);
      follower.scan();
      follower.enter(3);
      follower.pass();
      return;
    }
  }

  static constexpr int kWindow = 16;

  const Scenario& scenario_;
  const Protocol& p_;
  Figures& figures_;
  std::vector<std::string> steps_;
  int kills_ = 0;
  std::unordered_map<uint64_t, int> seen_;  // how many more kills each history had
  std::string trace_;
};

}  // namespace

Finding explore(const Scenario& scenario, const Protocol& protocol, int kills, Figures& figures) {
  return Search(scenario, protocol, figures).explore(kills);
}

}  // namespace Zorbe::Model
