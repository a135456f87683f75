// SPDX-License-Identifier: MIT
//
// Runs a reader again and again, each time with other answers to its loads, until it has had
// every one that release and acquire allow. A reader is ordinary code that depends on nothing
// but what `load` and `choose` return.
//
// A reader's view is the number of the newest store that it is certain of ("horizon": that one
// and all earlier ones are visible), and for single locations a newer store that a load without
// synchronisation returned. A load returns the newest store to its location that the view holds,
// or any later one. An acquire load of a release store raises the horizon to that store: the
// writers' stores are one sequence, and a release store shows all stores before it.
#pragma once

#include <array>
#include <csetjmp>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "memory.h"
#include "visited.h"

namespace Zorbe::Model {

enum class Order { kRelaxed, kAcquire };

class Explorer {
 public:
  explicit Explorer(const Memory& memory) : memory_(memory) {}

  /// Every run of `reader`. It may throw: then `trace` returns what it has loaded. A run that
  /// cannot come to anything new is left with longjmp: the reader's frames may have no destructors
  /// that do something (exceptions took half of the time).
  template <typename Reader>
  void run(Reader reader);

  Value load(Location location, Order order);
  /// A number below `count`, each of them in some run.
  unsigned choose(unsigned count);
  /// All stores before number `length` are visible from here on.
  void see(int length);
  /// What the reader does from here on depends on `state` and its view alone.
  void checkpoint(uint64_t state) { trail_ = mix(state, 1); }

  const Memory& memory() const { return memory_; }
  int horizon() const { return view_.horizon; }
  std::string trace() const;

  uint64_t runs() const { return runs_; }
  size_t states() const { return visited_.size(); }

 private:
  struct Newer {
    Location location;
    int store;
  };
  struct View {
    static constexpr size_t kMost = 40;
    int horizon = -1;
    size_t count = 0;
    std::array<Newer, kMost> newer;  // in the order of locations
    uint64_t hash() const;
    void raise(Location location, int store);
    void raiseHorizon(int store);
    int of(Location location) const;
  };
  // What may be taken at one place of a run: open_[begin..end) are not tried yet, the last of
  // them is being tried.
  struct Choice {
    size_t begin;
    size_t end;
  };

  View after(Location location, int store, Order order) const;
  void openStores(Location location, Order order);
  bool tryState(Location location, int store, Order order);
  Value valueOf(int store) const { return store < 0 ? 0 : memory_[store].value; }
  int decide();
  void begin();
  bool backtrack();

  const Memory& memory_;
  Visited visited_;
  View view_;
  uint64_t trail_ = 0;  // what the reader knows: all it loaded since the last checkpoint
  std::vector<Choice> choices_;
  std::vector<int> open_;
  size_t depth_ = 0;
  std::jmp_buf pruned_;
  std::vector<std::pair<Location, int>> loaded_;
  uint64_t runs_ = 0;
};

template <typename Reader>
void Explorer::run(Reader reader) {
  do {
    begin();
    if (setjmp(pruned_) == 0) reader(*this);
  } while (backtrack());
}

}  // namespace Zorbe::Model
