// SPDX-License-Identifier: MIT
#include "stress/chaos/probe.h"

#include <filesystem>
#include <utility>

#include "stress/chaos/client_context.h"
#include "stress/chaos/processes.h"

namespace Zorbe::Test::Chaos {

Probe::Probe(SharedState& shared, std::string directory)
    : shared_(shared),
      directory_(std::move(directory)),
      reader_(std::make_unique<Reader>(kTableName)) {}

// A table that was removed stays mapped, and its writer goes on in it until it notices.
bool Probe::isInPlace() const {
  return std::filesystem::exists(directory_ + "/slots");
}

bool Probe::look() {
  reader_->process();
  reader_->refresh();
  info_ = reader_->info();
  lack_ = isInPlace() ? "" : "its files are missing";
  if (info_.incarnation == 0 || !lack_.empty()) return false;
  Digest digest;
  for (const auto& [key, record] : reader_->scan()) {
    if (!record.isWhole(key)) throw Failure("key " + std::to_string(key) + " is torn");
    digest.add(key, record.number);
  }
  digest_ = digest.value();
  const auto mark = reader_->get(kMark);
  const uint64_t finished = shared_.finished[kMark];
  if (mark && KeyState::shows(finished, mark->number)) return true;
  lack_ = "its mark is " + (mark ? std::to_string(mark->number) : "missing") + " and not " +
          std::to_string(finished / 2);
  return false;
}

std::optional<Table::Status> Probe::status() {
  reader_->process();
  info_ = reader_->info();
  return reader_->status();
}

void Probe::verify() {
  for (Key key = 0; key < kKeys; ++key) {
    const uint64_t state = shared_.finished[key];
    const auto record = reader_->get(key);
    if (KeyState::shows(state, record ? record->number : 0)) continue;
    throw Failure("key " + std::to_string(key) + " was " + ((state & 1) != 0 ? "erased" : "put") +
                  " by change " + std::to_string(state / 2) + " and the table has " +
                  (record ? "change " + std::to_string(record->number) : "no record"));
  }
}

}  // namespace Zorbe::Test::Chaos
