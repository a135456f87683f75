// SPDX-License-Identifier: MIT
#include "explorer.h"

#include <algorithm>
#include <stdexcept>

namespace Zorbe::Model {

uint64_t Explorer::View::hash() const {
  auto hash = static_cast<uint64_t>(horizon) + 1;
  for (size_t i = 0; i < count; ++i) {
    hash = mix(hash, static_cast<uint64_t>(newer[i].location) << 32 |
                         static_cast<uint64_t>(newer[i].store));
  }
  return hash;
}

int Explorer::View::of(Location location) const {
  for (size_t i = 0; i < count; ++i) {
    if (newer[i].location == location) return newer[i].store;
  }
  return horizon;
}

void Explorer::View::raise(Location location, int store) {
  if (store <= horizon) return;
  size_t place = 0;
  while (place < count && newer[place].location < location) ++place;
  if (place == count || newer[place].location != location) {
    if (count == kMost) throw std::logic_error("a view is too small");
    for (size_t i = count++; i > place; --i) newer[i] = newer[i - 1];
    newer[place].location = location;
  }
  newer[place].store = store;
}

void Explorer::View::raiseHorizon(int store) {
  if (store <= horizon) return;
  horizon = store;
  size_t kept = 0;
  for (size_t i = 0; i < count; ++i) {
    if (newer[i].store > horizon) newer[kept++] = newer[i];
  }
  count = kept;
}

void Explorer::begin() {
  view_.horizon = -1;
  view_.count = 0;
  trail_ = 0;
  depth_ = 0;
  loaded_.clear();
  ++runs_;
}

bool Explorer::backtrack() {
  while (!choices_.empty()) {
    Choice& last = choices_.back();
    open_.pop_back();
    if (--last.end > last.begin) return true;
    choices_.pop_back();
  }
  return false;
}

Explorer::View Explorer::after(Location location, int store, Order order) const {
  View view = view_;
  if (store < 0) return view;
  if (order == Order::kAcquire && memory_[store].release) view.raiseHorizon(store);
  view.raise(location, store);
  return view;
}

// False when a reader was already where this store would take it.
bool Explorer::tryState(Location location, int store, Order order) {
  const uint64_t hash = after(location, store, order).hash();
  return visited_.insert(mix(mix(trail_, valueOf(store)), hash));
}

// The stores that a load may return: the newest one in the view, and all later ones. What a
// location held at first is -1.
void Explorer::openStores(Location location, Order order) {
  const std::vector<int>& stores = memory_.storesTo(location);
  auto from = std::upper_bound(stores.begin(), stores.end(), view_.of(location));
  if (from == stores.begin()) {
    if (tryState(location, -1, order)) open_.push_back(-1);
  } else {
    --from;
  }
  for (; from != stores.end(); ++from) {
    if (tryState(location, *from, order)) open_.push_back(*from);
  }
}

// Takes what this run is about, or the first of what was just opened.
int Explorer::decide() {
  if (depth_ == choices_.size()) {
    const size_t begin = choices_.empty() ? 0 : choices_.back().end;
    if (begin == open_.size()) std::longjmp(pruned_, 1);
    choices_.push_back({begin, open_.size()});
  }
  return open_[choices_[depth_++].end - 1];
}

Value Explorer::load(Location location, Order order) {
  if (depth_ == choices_.size()) openStores(location, order);
  const int store = decide();
  view_ = after(location, store, order);
  trail_ = mix(trail_, valueOf(store));
  loaded_.emplace_back(location, store);
  return valueOf(store);
}

unsigned Explorer::choose(unsigned count) {
  if (depth_ == choices_.size()) {
    for (unsigned i = 0; i < count; ++i) open_.push_back(static_cast<int>(i));
  }
  const auto chosen = static_cast<unsigned>(decide());
  trail_ = mix(trail_, chosen + 1);
  return chosen;
}

void Explorer::see(int length) {
  view_.raiseHorizon(length - 1);
}

std::string Explorer::trace() const {
  std::string text;
  for (int i = memory_.setUp; i < memory_.size(); ++i) {
    text += "  store " + std::to_string(i) + ": " + memory_.nameOf(memory_[i].location) + " = " +
            std::to_string(memory_[i].value) + (memory_[i].release ? "" : " (relaxed)") + "\n";
  }
  for (const auto& [location, store] : loaded_) {
    text +=
        "  load " + memory_.nameOf(location) + ": " +
        (store < 0 ? "initial"
                   : std::to_string(memory_[store].value) + " of store " + std::to_string(store)) +
        "\n";
  }
  return text;
}

}  // namespace Zorbe::Model
