// SPDX-License-Identifier: MIT
#include "stress/simulation/table/table_oracle.h"

#include <utility>

namespace Zorbe::Test::Simulation {

namespace {

void apply(Numbers& numbers, uint64_t key, uint64_t number) {
  if (number == Oracle::kErased) {
    numbers.erase(key);
  } else {
    numbers[key] = number;
  }
}

}  // namespace

std::string describe(const Numbers& found, const Numbers& expected) {
  for (const auto& [key, number] : expected) {
    const auto there = found.find(key);
    if (there == found.end()) return "key " + std::to_string(key) + " was lost";
    if (there->second != number) {
      return "key " + std::to_string(key) + " has " + std::to_string(there->second) +
             " instead of " + std::to_string(number);
    }
  }
  return "there are " + std::to_string(found.size()) + " records instead of " +
         std::to_string(expected.size());
}

void Oracle::begin(uint64_t key, uint64_t number) {
  begun_.emplace(key, number);
}

void Oracle::finish() {
  const auto [key, number] = *std::exchange(begun_, std::nullopt);
  history_.push_back({key, finishedOf(key), number});
  apply(finished_, key, number);
}

std::string Oracle::takeOver(const Numbers& found, bool mayBeEmpty) {
  Numbers both = finished_;
  if (begun_) apply(both, begun_->first, begun_->second);
  if (found == both && begun_) finish();
  begun_.reset();
  if (found == finished_) return "";
  if (!mayBeEmpty || !found.empty()) return describe(found, finished_);
  for (const auto& [key, number] : Numbers(finished_)) {
    begin(key, kErased);
    finish();
  }
  return "";
}

uint64_t Oracle::finishedOf(uint64_t key) const {
  const auto found = finished_.find(key);
  return found == finished_.end() ? kErased : found->second;
}

bool Oracle::mayBe(uint64_t key, uint64_t number, size_t since) const {
  if (finishedOf(key) == number) return true;
  if (begun_ && *begun_ == std::pair(key, number)) return true;
  for (size_t i = since; i < history_.size(); ++i) {
    const Change& change = history_[i];
    if (change.key == key && (change.before == number || change.number == number)) return true;
  }
  return false;
}

}  // namespace Zorbe::Test::Simulation
